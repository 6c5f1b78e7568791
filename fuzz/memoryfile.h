#ifndef PELCLOUD_FUZZ_MEMORYFILE_H
#define PELCLOUD_FUZZ_MEMORYFILE_H

#include "fuzz/check.h"

#include <fstream>
#include <iterator>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

/** A regular file that has a name and no place on a disk. */
class MemoryFile
{
public:
    MemoryFile()
        : m_descriptor(memfd_create("pelcloud-fuzz", MFD_CLOEXEC))
    {
        FUZZ_CHECK(m_descriptor >= 0);
    }
    ~MemoryFile() { close(m_descriptor); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    [[nodiscard]] std::string name() const
    {
        return "/proc/self/fd/" + std::to_string(m_descriptor);
    }
    [[nodiscard]] std::string contents() const
    {
        std::ifstream in(name(), std::ios::binary);
        return { std::istreambuf_iterator<char>(in), {} };
    }
    void write(const std::string &text) const
    {
        std::ofstream(name(), std::ios::binary | std::ios::trunc) << text;
    }

private:
    int m_descriptor;
};

#endif
