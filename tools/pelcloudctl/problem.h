#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_PROBLEM_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_PROBLEM_H

#include <stdexcept>
#include <string>
#include <utility>

/** Ends a command with exit status 1. A line says what is wrong, a second one what to do. */
class Problem : public std::runtime_error
{
public:
    explicit Problem(const std::string &what, std::string remedy = {})
        : std::runtime_error(what)
        , m_remedy(std::move(remedy))
    {}
    /** What to do; may be empty. */
    [[nodiscard]] const std::string &remedy() const { return m_remedy; }

private:
    std::string m_remedy;
};

/** The text of an errno, such as "Permission denied". */
[[nodiscard]] std::string errorWords(int error);

#endif
