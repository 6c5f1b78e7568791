#ifndef PELCLOUD_TESTS_GOLDEN_H
#define PELCLOUD_TESTS_GOLDEN_H

#include <fstream>
#include <iterator>
#include <string>

/** The text of a file of tests/golden, typed by hand; empty when there is no such file. */
inline std::string golden(const std::string &name)
{
    std::ifstream file(std::string(PELCLOUD_GOLDEN_DIR "/") + name, std::ios::binary);
    return { std::istreambuf_iterator<char>(file), {} };
}

#endif
