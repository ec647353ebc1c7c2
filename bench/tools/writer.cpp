// The replay benchmark's writer: "-a G P ... -i POG -o FILE". Writes one "G P" line per
// "-a" pair into FILE and nothing else, so that starting it costs what starting any
// process costs. Exit status 1 when FILE cannot be written.

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    const char* output = nullptr;
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "-o") == 0)
            output = argv[i + 1];
    }
    if (output == nullptr)
        return 1;
    std::FILE* file = std::fopen(output, "w");
    if (file == nullptr)
        return 1;
    for (int i = 1; i + 2 < argc; ++i) {
        if (std::strcmp(argv[i], "-a") == 0) {
            std::fprintf(file, "%s %s\n", argv[i + 1], argv[i + 2]);
            i += 2;
        }
    }
    return std::fclose(file) == 0 ? 0 : 1;
}
