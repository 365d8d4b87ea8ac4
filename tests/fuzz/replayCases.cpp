// Replays inputs of the decoder's fuzz target: every file named, or in a directory named, whole and
// cut short at many places.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

// The fuzz target's mutator refers to libFuzzer's, which is not here.
extern "C" std::size_t LLVMFuzzerMutate(unsigned char* /*data*/, std::size_t size,
                                        std::size_t /*most*/)
{
    return size;
}

int main(int argc, char** argv)
{
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i)
        if (fs::is_directory(argv[i]))
            std::copy(fs::directory_iterator(argv[i]), {}, std::back_inserter(files));
        else
            files.emplace_back(argv[i]);

    constexpr std::size_t cuts = 40;
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        if (bytes.empty()) {
            std::printf("%s cannot be read or is empty\n", file.c_str());
            return 1;
        }
        const std::size_t step = std::max<std::size_t>(1, bytes.size() / cuts);
        for (std::size_t cut = 0; cut < bytes.size(); cut += step)
            LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   bytes.size() - cut);
    }
    std::printf("%zu files\n", files.size());
    return files.empty();
}
