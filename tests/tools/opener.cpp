// Child process for the workspace tests: stands in for the desktop's opener program.
//
//   nbtest_opener <address>...
//
// Writes its arguments, one per line, to the file that the environment variable NBTEST_OPENED names,
// through a temporary file renamed into place, so the test never reads half of it. Exits 0, or 64 without
// the variable.
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
    const char* target = std::getenv("NBTEST_OPENED");
    if (target == nullptr) return 64;
    const std::string temporary = std::string(target) + ".part";
    std::FILE* out = std::fopen(temporary.c_str(), "w");
    if (out == nullptr) return 1;
    for (int i = 1; i < argc; ++i) std::fprintf(out, "%s\n", argv[i]);
    if (std::fclose(out) != 0) return 1;
    return std::rename(temporary.c_str(), target) == 0 ? 0 : 1;
}
