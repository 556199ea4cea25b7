// Replaces the fuzzer in builds without it: runs the target on every file of the folder that is its
// argument.

#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/WholeFile.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        const std::string bytes = glintmark::test::wholeFile(entry.path());
        std::printf("%s\n", entry.path().c_str());
        std::fflush(stdout);  // or the name of a file that ends the process would be lost
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++count;
    }
    return count > 0 ? 0 : 1;
}
