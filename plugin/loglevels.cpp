#include "plugin/loglevels.h"

#include <algorithm>
#include <iterator>

#include <QLatin1String>

namespace {

struct NamedLevel
{
    QLatin1String name;
    QLogger::LogLevel level;
};

constexpr NamedLevel LEVELS[] = {
    { QLatin1String("ERROR"), QLogger::LogLevel::Error },
    { QLatin1String("WARNING"), QLogger::LogLevel::Warning },
    { QLatin1String("INFO"), QLogger::LogLevel::Info },
    { QLatin1String("DEBUG"), QLogger::LogLevel::Debug },
    { QLatin1String("TRACE"), QLogger::LogLevel::Trace },
};

} // namespace

QLogger::LogLevel LogLevelFromText(const QString &text)
{
    const auto named = std::find_if(std::begin(LEVELS), std::end(LEVELS), [&](const auto &row) {
        return text.compare(row.name, Qt::CaseInsensitive) == 0;
    });
    return named == std::end(LEVELS) ? QLogger::LogLevel::Fatal : named->level;
}
