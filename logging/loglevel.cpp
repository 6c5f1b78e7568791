#include "logging/loglevel.h"

#include "support/utils.h"

#include <algorithm>

namespace QLogger {

std::vector<std::string> logLevelWords()
{
    std::vector<std::string> words(LOG_LEVEL_NAMES.rbegin(), LOG_LEVEL_NAMES.rend());
    std::transform(words.begin(), words.end(), words.begin(),
                   [](const std::string &name) { return LowerCase(name); });
    return words;
}

std::optional<LogLevel> logLevelNamed(const QString &name)
{
    const auto found = std::find_if(
            LOG_LEVEL_NAMES.begin(), LOG_LEVEL_NAMES.end(), [&name](const char *candidate) {
                return name.compare(QLatin1StringView(candidate), Qt::CaseInsensitive) == 0;
            });
    if (found == LOG_LEVEL_NAMES.end())
        return {};
    return static_cast<LogLevel>(found - LOG_LEVEL_NAMES.begin());
}

LogLevel logLevelFromText(const QString &text)
{
    return logLevelNamed(text).value_or(LogLevel::Fatal);
}

} // namespace QLogger
