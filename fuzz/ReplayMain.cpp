// Runs a fuzz target over files instead of under libFuzzer: every file of
// each folder named on the command line (or the file itself), in name order.
// The test suite replays the committed seeds and regression inputs this way.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path path(argv[i]);
        if (fs::is_directory(path)) {
            for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
                if (entry.is_regular_file() && entry.path().filename().string()[0] != '.') {
                    files.push_back(entry.path());
                }
            }
        } else if (fs::exists(path)) {
            files.push_back(path);
        }
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                      std::istreambuf_iterator<char>());
        if (!in.eof() && in.fail()) {
            std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 1;
        }
        // A copy of exactly the input's size, so that an overread is caught.
        std::vector<uint8_t> input(bytes.begin(), bytes.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
