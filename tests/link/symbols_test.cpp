// The dynamic symbol table of the built library, read from the ELF file itself: exactly
// the exports a host calls are visible, all of them functions, and nothing else.
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "host/link_loader.h"

namespace {

struct DynamicSymbol {
    std::string name;
    unsigned type;  // STT_*
};

// The defined symbols of .dynsym with global or weak binding and default or protected
// visibility: what another module can bind to. Empty names are skipped.
std::vector<DynamicSymbol> exportedSymbols(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> image{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_GT(image.size(), sizeof(Elf64_Ehdr));
    if (image.size() <= sizeof(Elf64_Ehdr)) return {};
    Elf64_Ehdr header;
    std::memcpy(&header, image.data(), sizeof header);
    EXPECT_EQ(std::memcmp(header.e_ident, ELFMAG, SELFMAG), 0);
    EXPECT_EQ(header.e_ident[EI_CLASS], ELFCLASS64);

    auto section = [&](std::size_t k) {
        Elf64_Shdr entry;
        std::memcpy(&entry, image.data() + header.e_shoff + k * header.e_shentsize, sizeof entry);
        return entry;
    };
    std::vector<DynamicSymbol> symbols;
    for (std::size_t k = 0; k < header.e_shnum; ++k) {
        const Elf64_Shdr table = section(k);
        if (table.sh_type != SHT_DYNSYM) continue;
        const Elf64_Shdr strings = section(table.sh_link);
        for (std::size_t q = 0; q < table.sh_size / sizeof(Elf64_Sym); ++q) {
            Elf64_Sym symbol;
            std::memcpy(&symbol, image.data() + table.sh_offset + q * sizeof(Elf64_Sym), sizeof symbol);
            const unsigned binding = ELF64_ST_BIND(symbol.st_info);
            const unsigned visibility = ELF64_ST_VISIBILITY(symbol.st_other);
            if (symbol.st_shndx == SHN_UNDEF || (binding != STB_GLOBAL && binding != STB_WEAK) ||
                (visibility != STV_DEFAULT && visibility != STV_PROTECTED)) {
                continue;
            }
            std::string name(image.data() + strings.sh_offset + symbol.st_name);
            if (!name.empty()) symbols.push_back({name, static_cast<unsigned>(ELF64_ST_TYPE(symbol.st_info))});
        }
    }
    return symbols;
}

TEST(LinkSymbols, ExactlyTheHostExportsAreVisible) {
    const std::vector<DynamicSymbol> symbols = exportedSymbols(KORVEX_LINK_PATH);
    std::set<std::string> visible;
    for (const DynamicSymbol& symbol : symbols) {
        EXPECT_EQ(symbol.type, static_cast<unsigned>(STT_FUNC)) << symbol.name;
        visible.insert(symbol.name);
    }
    EXPECT_EQ(visible.size(), symbols.size()) << "a symbol is listed twice";

    const std::vector<std::string> names = korvexLinkExportNames();
    const std::set<std::string> expected(names.begin(), names.end());
    ASSERT_EQ(expected.size(), 22u);
    std::vector<std::string> extra, missing;
    std::set_difference(visible.begin(), visible.end(), expected.begin(), expected.end(), std::back_inserter(extra));
    std::set_difference(expected.begin(), expected.end(), visible.begin(), visible.end(), std::back_inserter(missing));
    EXPECT_TRUE(extra.empty()) << "visible but not an export: " << testing::PrintToString(extra);
    EXPECT_TRUE(missing.empty()) << "exports not visible: " << testing::PrintToString(missing);
}

}  // namespace
