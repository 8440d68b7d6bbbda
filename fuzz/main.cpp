// SPDX-License-Identifier: MIT
// The two ways to run a target. Built for fuzzing, libFuzzer drives it:
//
//   fuzz_tarnwick --target=mode <options of libFuzzer> <folders of inputs>
//
// Otherwise each input runs once, and the program fails when there is none:
//
//   fuzz_tarnwick --target=mode <inputs or folders of inputs>
#include "targets.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr std::string_view option = "--target=";

// Written once at the start.
const target_s* chosen = nullptr;

bool chooseTarget(std::span<char*> arguments) {
    for (const std::string_view argument : arguments) {
        if (argument.starts_with(option)) {
            const auto found = std::ranges::find(targets, argument.substr(option.size()), &target_s::name);
            chosen = found == targets.end() ? nullptr : &*found;
        }
    }
    if (chosen == nullptr) {
        std::fprintf(stderr, "%s and one of:", option.data());
        for (const target_s& target : targets) {
            std::fprintf(stderr, " %s", target.name.data());
        }
        std::fputc('\n', stderr);
    }
    return chosen != nullptr;
}

}  // namespace

const char* fileOf(std::string_view content, std::size_t number) {
    static const int files[] = {memfd_create("input", MFD_CLOEXEC), memfd_create("input", MFD_CLOEXEC)};
    static const std::string names[] = {"/proc/self/fd/" + std::to_string(files[0]),
                                        "/proc/self/fd/" + std::to_string(files[1])};
    require(ftruncate(files[number], 0) == 0 && pwrite(files[number], content.data(), content.size(), 0) ==
                                                    static_cast<ssize_t>(content.size()),
            "a file in memory can be written");
    return names[number].c_str();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    chosen->run({reinterpret_cast<const char*>(data), size});
    return 0;
}

#ifdef TARNWICK_FUZZ
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static std::vector<char*> arguments(*argv, *argv + *argc);
    if (!chooseTarget(arguments)) {
        std::exit(1);
    }
    static std::string limit = "-max_len=" + std::to_string(chosen->longest);
    arguments.push_back(limit.data());
    *argc = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    *argv = arguments.data();
    return 0;
}
#else
namespace {

namespace fs = std::filesystem;

void runFile(const fs::path& path) {
    std::printf("%s\n", path.c_str());  // after a crash the last name is that of the input
    std::fflush(stdout);
    std::ifstream file(path, std::ios::binary);
    // A block of its own, so that a sanitizer sees a read beyond the end.
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    require(input.size() <= chosen->longest, "an input is as short as its target wants it");
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

std::vector<fs::path> filesAt(const fs::path& path) {
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files(fs::directory_iterator(path), fs::directory_iterator{});
    std::ranges::sort(files);
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    const std::span arguments(argv, static_cast<std::size_t>(argc));
    if (!chooseTarget(arguments)) {
        return 1;
    }
    std::size_t count = 0;
    for (const std::string_view argument : arguments.subspan(1)) {
        for (const fs::path& path : argument.starts_with('-') ? std::vector<fs::path>{} : filesAt(argument)) {
            runFile(path);
            ++count;
        }
    }
    std::printf("%zu inputs\n", count);
    return count == 0 ? 1 : 0;
}
#endif
