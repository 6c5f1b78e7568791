#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_PROBLEM_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_PROBLEM_H

#include <stdexcept>
#include <string>
#include <utility>

/** What ends a command with exit status 1: one line that says what is wrong, one what to do next. */
class Problem : public std::runtime_error
{
public:
    explicit Problem(const std::string &what, std::string remedy = {})
        : std::runtime_error(what)
        , m_remedy(std::move(remedy))
    {}
    /** Empty when there is nothing to advise. */
    [[nodiscard]] const std::string &remedy() const { return m_remedy; }

private:
    std::string m_remedy;
};

/** The words of an errno, "Permission denied". */
[[nodiscard]] std::string errorWords(int error);

#endif
