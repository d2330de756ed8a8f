#include <cstdio>

int main() {
    std::puts("nbctl: under construction");
    return 0;
}
