#ifndef PELCLOUD_TESTS_SUPPORT_TEMPDIR_H
#define PELCLOUD_TESTS_SUPPORT_TEMPDIR_H

#include <filesystem>
#include <fstream>
#include <stdlib.h>
#include <string>

/** A directory of its own for one test, removed with all its files. */
struct TempDir
{
    ~TempDir() { std::filesystem::remove_all(path); }
    const std::string path = std::string(mkdtemp(std::string("/tmp/pelcloud.XXXXXX").data())) + '/';
};

/** Writes a file; returns its name. */
inline std::string written(const std::string &file, const std::string &text)
{
    std::ofstream(file, std::ios::binary) << text;
    return file;
}

inline std::string contentOf(const std::string &file)
{
    std::ifstream in(file, std::ios::binary);
    return { std::istreambuf_iterator<char>(in), {} };
}

#endif
