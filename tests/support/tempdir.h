#ifndef PELCLOUD_TESTS_SUPPORT_TEMPDIR_H
#define PELCLOUD_TESTS_SUPPORT_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/** A directory of its own for one test, removed with all its files. */
class TempDir
{
public:
    TempDir()
        : m_path((std::filesystem::temp_directory_path() / "pelcloud.XXXXXX").string())
    {
        if (mkdtemp(m_path.data()) == nullptr)
            std::abort();
    }
    ~TempDir() { std::filesystem::remove_all(m_path); }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    [[nodiscard]] std::string path(const std::string &name = {}) const
    {
        return m_path + '/' + name;
    }
    [[nodiscard]] std::string write(const std::string &name, const std::string &text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }

private:
    std::string m_path;
};

inline std::string contentOf(const std::string &file)
{
    std::ifstream in(file, std::ios::binary);
    return { std::istreambuf_iterator<char>(in), {} };
}

#endif
