// `nbctl host`: the reference host. It plays a client's start-up the way an application drives the
// library (settings in the user's suite, work on global queues, results on the main queue) and prints
// what each step learned.
//
// It runs in a temporary home of its own, removed at the end unless --keep is given, so it never
// touches the user's real settings. Everything it prints comes from the library's answers.
//
// What it starts: the plug-ins of the sample folder (DataFolders.h; or --plugins), the SDK stand-in
// (ReplaySdk) on the replies folder, and for the images a local HTTP server (LocalImageServer) on
// 127.0.0.1, on a port the system picks, over the images folder; recorded image addresses are rewritten
// to it, so the host never reaches the network. The feedback page is opened
// in the browser (xdg-open) only with --open-feedback; otherwise its address is printed.
#pragma once

#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class HostCommand {
public:
    // defaultReplies: the recorded server replies the SDK stand-in plays; defaultImages: the pictures the
    // local image server serves in place of the image host.
    HostCommand(CLI::App& app, std::filesystem::path defaultReplies, std::filesystem::path defaultImages,
                std::filesystem::path defaultPlugIns);

    // Runs on the process's main thread, which becomes the main queue's thread. Answers the exit code.
    int run() const;

private:
    CLI::App* command_ = nullptr;
    std::string home_;  // empty: a new temporary home
    bool keep_ = false;
    bool openFeedback_ = false;
    std::filesystem::path replies_;
    std::filesystem::path images_;
    std::filesystem::path plugIns_;
};

}  // namespace nb::nbctl
