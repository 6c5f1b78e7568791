#include "tools/pelcloudctl/findings.h"

#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/terminal.h"

#include <algorithm>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

using namespace Qt::StringLiterals;
using Terminal::Colour;

struct Look
{
    const char *word;
    Colour colour;
};

Look lookOf(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Ok:
        return { "ok", Colour::Green };
    case Verdict::Warning:
        return { "warning", Colour::Yellow };
    case Verdict::Problem:
        break;
    }
    return { "problem", Colour::Red };
}

QString qt(const std::string &text)
{
    return QString::fromStdString(text);
}

} // namespace

void Findings::add(Verdict verdict, const char *subject, const std::string &text,
                   const std::string &remedy)
{
    m_findings.push_back({ verdict, subject, Terminal::printable(std::string_view(text)), remedy });
}

void Findings::add(const char *subject, const Problem &problem)
{
    add(Verdict::Problem, subject, problem.what(), problem.remedy());
}

bool Findings::isGood() const
{
    return std::none_of(m_findings.begin(), m_findings.end(),
                        [](const Finding &finding) { return finding.verdict == Verdict::Problem; });
}

std::string Findings::text() const
{
    constexpr std::size_t INDENT = 8;
    std::string text;
    for (const Finding &finding : m_findings) {
        const auto [word, colour] = lookOf(finding.verdict);
        text += Terminal::painted(colour, word);
        text.append(INDENT - std::string_view(word).size(), ' ');
        text += finding.subject + ": " + finding.text + "\n";
        if (!finding.remedy.empty())
            text.append(INDENT, ' ').append(finding.remedy).append("\n");
    }
    return text;
}

std::string Findings::json() const
{
    QJsonArray rows;
    for (const Finding &finding : m_findings) {
        QJsonObject row{ { "verdict", lookOf(finding.verdict).word },
                         { "subject", qt(finding.subject) },
                         { "text", qt(finding.text) } };
        if (!finding.remedy.empty())
            row.insert("remedy"_L1, qt(finding.remedy));
        rows.append(row);
    }
    return QJsonDocument(QJsonObject{ { "ok", isGood() }, { "findings", rows } })
            .toJson()
            .toStdString();
}
