#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_FINDINGS_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_FINDINGS_H

#include <string>
#include <vector>

class Problem;

enum class Verdict { Ok, Warning, Problem };

/** What the command check has found, in this order. */
class Findings
{
public:
    void add(Verdict verdict, const char *subject, const std::string &text,
             const std::string &remedy = {});
    void add(const char *subject, const Problem &problem);

    [[nodiscard]] std::size_t count() const { return m_findings.size(); }
    /** Whether there is no Problem. */
    [[nodiscard]] bool isGood() const;

    /** For a person. */
    [[nodiscard]] std::string text() const;
    /** For a program. */
    [[nodiscard]] std::string json() const;

private:
    struct Finding
    {
        Verdict verdict;
        std::string subject;
        std::string text;
        std::string remedy; // may be empty
    };

    std::vector<Finding> m_findings;
};

#endif
