#include "tools/updater/elf_check.h"

#include <elf.h>
#include <link.h>

#include <cstring>
#include <fstream>

namespace updater_tool
{

namespace
{

    bool read_header(const std::string& path, ElfW(Ehdr) * header, unsigned long long* size)
    {
        std::ifstream in(path, std::ios::binary | std::ios::ate);
        if (!in)
            return false;
        *size = static_cast<unsigned long long>(in.tellg());
        in.seekg(0);
        return in.read(reinterpret_cast<char*>(header), sizeof *header) && in.gcount() == sizeof *header;
    }

    // A table of `count` entries of `entry` bytes at `offset` lies inside the file.
    bool table_fits(
        unsigned long long offset, unsigned long long count, unsigned long long entry, unsigned long long size)
    {
        return offset <= size && count * entry <= size - offset;
    }

} // namespace

bool native_executable(const std::string& path, std::string* why)
{
    ElfW(Ehdr) own {};
    unsigned long long own_size = 0;
    if (!read_header("/proc/self/exe", &own, &own_size)) {
        *why = "can't read this program's own header";
        return false;
    }
    ElfW(Ehdr) h {};
    unsigned long long size = 0;
    if (!read_header(path, &h, &size)) {
        *why = "shorter than an ELF header";
        return false;
    }
    if (std::memcmp(h.e_ident, ELFMAG, SELFMAG) != 0) {
        *why = "not an ELF file";
        return false;
    }
    if (h.e_ident[EI_CLASS] != own.e_ident[EI_CLASS] || h.e_ident[EI_DATA] != own.e_ident[EI_DATA]
        || h.e_machine != own.e_machine) {
        *why = "an ELF file for another machine";
        return false;
    }
    if (h.e_type != ET_EXEC && h.e_type != ET_DYN) {
        *why = "an ELF file that isn't executable";
        return false;
    }
    if (h.e_phnum == 0 || h.e_phentsize != sizeof(ElfW(Phdr))
        || !table_fits(h.e_phoff, h.e_phnum, h.e_phentsize, size)) {
        *why = "its program headers are missing or outside the file";
        return false;
    }
    // The section table ends the file as linkers write it: a cut file loses it first.
    if (h.e_shoff != 0 && !table_fits(h.e_shoff, h.e_shnum, h.e_shentsize, size)) {
        *why = "cut short: its section headers are outside the file";
        return false;
    }
    return true;
}

} // namespace updater_tool
