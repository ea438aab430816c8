// SPDX-License-Identifier: MIT
// kvz-smaa-tables FILE: writes the lookup tables of SMAARenderPass as a C++ source. Runs while the library is built.
#include "SmaaTables.h"

#include <cstdio>

using namespace Velmora::Kvz;

namespace {

void writeTable(std::FILE *file, const char *name, const std::vector<std::uint8_t> &bytes)
{
    std::fprintf(file, "const unsigned char %s[%zu] = {", name, bytes.size());
    for (size_t i = 0; i < bytes.size(); ++i)
        std::fprintf(file, "%s%d,", i % 32 == 0 ? "\n" : "", int(bytes[i]));
    std::fprintf(file, "\n};\n");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: kvz-smaa-tables FILE, the C++ source to write\n");
        return 2;
    }
    std::FILE *const file = std::fopen(argv[1], "w");
    if (!file) {
        std::fprintf(
            stderr, "kvz-smaa-tables: cannot write '%s'; give a file in a folder that can be written\n", argv[1]);
        return 1;
    }
    std::fprintf(file, "// Written by kvz-smaa-tables.\n#include \"SmaaTableData.h\"\n\nnamespace Velmora::Kvz {\n\n");
    writeTable(file, "smaaAreaTable", SmaaTables::area());
    writeTable(file, "smaaSearchTable", SmaaTables::search());
    std::fprintf(file, "\n} // namespace Velmora::Kvz\n");
    const bool failed = std::ferror(file) != 0;
    if (std::fclose(file) != 0 || failed) {
        std::fprintf(stderr, "kvz-smaa-tables: writing '%s' failed; is the disk full?\n", argv[1]);
        std::remove(argv[1]);
        return 1;
    }
    return 0;
}
