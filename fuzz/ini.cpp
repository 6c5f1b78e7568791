// An INI file of any bytes, edited by operations that the input chooses, saved and loaded again. A map is the model.

#include "fuzz/fuzz.h"
#include "support/cfgclass.h"
#include "support/utils.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <string>

#include <QByteArrayList>

namespace {

using Keys = std::map<std::string, std::string>;
using Content = std::map<std::string, Keys>;

/** Everything, read by number in the order of the names; reads by name must agree. */
Content content(CfgClass &config)
{
    Content found;
    for (unsigned long s = 0; s < config.GetSectionCount(); ++s) {
        const std::string section = config.GetSectionName(s);
        FUZZ_CHECK(found.empty() || found.rbegin()->first < section);
        Keys &keys = found[section];
        for (unsigned long k = 0; k < config.GetKeyCount(section); ++k) {
            const std::string key = config.GetKeyName(section, k);
            FUZZ_CHECK(keys.empty() || keys.rbegin()->first < key);
            const std::string value = keys[key] = config.ReadStr(section, k, "?");
            FUZZ_CHECK(config.ReadStr(section, key, value + '?') == value && !config.IsFail());
        }
    }
    return found;
}

Content loaded(const std::string &text)
{
    const std::string name = scratchFile("loaded");
    writeFile(name, text);
    CfgClass config;
    FUZZ_CHECK(config.OpenReadOnly(name));
    return content(config);
}

/** Checks that a load of the file gives `expected`, except an empty section without a name. */
void checkSaved(const std::string &text, Content expected)
{
    Content saved = loaded(text);
    for (Content *const side : { &expected, &saved })
        side->erase(side->contains("") && side->at("").empty() ? "" : "\n");
    FUZZ_CHECK(saved == expected);
}

/** Checks that a write changed one line at most, and that a removal changed and added none. */
void checkLines(const QByteArrayList &old, const QByteArrayList &now, bool isWrite)
{
    if (isWrite) {
        const auto front = std::ranges::mismatch(old, now);
        const auto back = std::mismatch(old.rbegin(), std::make_reverse_iterator(front.in1),
                                        now.rbegin(), std::make_reverse_iterator(front.in2));
        FUZZ_CHECK(std::distance(front.in1, back.first.base()) <= 1);
        return;
    }
    auto from = old.begin();
    for (const QByteArray &line : now) {
        from = std::find(from, old.end(), line);
        FUZZ_CHECK(now == QByteArrayList{ "" } || from++ != old.end());
    }
}

/** A name: usually one of `names`, in lower case, since they are held in capitals. */
template <class Names>
std::string take(FuzzedDataProvider &input, const Names &names)
{
    const auto choice = input.ConsumeIntegral<std::uint8_t>();
    if (choice % 4 == 0 || names.empty())
        return upToNul(input.ConsumeRandomLengthString(24));
    return LowerCase(std::next(names.begin(), choice % names.size())->first);
}

/** One operation on the file and, where it must succeed, on `model`. Whether it is a write. */
bool edit(FuzzedDataProvider &input, CfgClass &config, Content &model)
{
    const auto operation = input.ConsumeIntegralInRange(0, 7);
    const std::string section = take(input, model);
    const std::string s = LocaleUpperCase(section);
    const bool hasSection = model.contains(s);
    const std::string key = take(input, hasSection ? model[s] : Keys());
    const std::string k = LocaleUpperCase(key);
    const bool hasKey = hasSection && model[s].contains(k);
    if (operation == 0) {
        FUZZ_CHECK(config.EraseSection(section) == (model.erase(s) > 0));
    } else if (operation == 1) {
        FUZZ_CHECK(config.DeleteKey(section, key) == (hasKey && model[s].erase(k) > 0));
    } else {
        std::string value = upToNul(input.ConsumeRandomLengthString(24));
        value = value.substr(0, value.find_first_of("[]")); // no load accepts them in a value
        const bool isReadable = (hasSection || loaded('[' + section + ']').contains(s))
                                && (hasKey || loaded("[a]\n" + key + '=')["A"].contains(k));
        const bool isValid = !key.empty() && value.find('\n') == value.npos && isReadable;
        FUZZ_CHECK(config.WriteStr(section, key, value) == isValid);
        if (isValid)
            model[s][k] = Trim(value);
    }
    return operation > 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto options = input.ConsumeIntegral<std::uint8_t>();
    const bool isCached = options % 4 > 1;
    useLocale(options / 4);
    const std::string text = input.ConsumeRandomLengthString();

    const std::string name = scratchFile("edited");
    writeFile(name, text);
    RegCfgClass spelled;
    CfgClass plain;
    CfgClass &config = options % 2 != 0 ? spelled : plain;
    FUZZ_CHECK(config.Open(name));
    const std::uint64_t badLine = config.GetErrorLine();
    FUZZ_CHECK(config.GetErrorCode() == (badLine == 0 ? 0 : CfgClass::SYNTAX_ERROR));
    QByteArrayList lines = QByteArray::fromStdString(text).split('\n');
    FUZZ_CHECK(badLine == 0 || loaded(lines.at(qsizetype(badLine) - 1).toStdString()).empty());
    if (text.ends_with('\n'))
        lines.removeLast(); // a save keeps every line, and no final line feed

    Content model = content(config);
    config.SetCached(isCached);
    for (std::string saved = text; input.remaining_bytes() > 0;) {
        const bool isWrite = edit(input, config, model);
        FUZZ_CHECK(content(config) == model);
        const std::string now = readFile(name);
        if (isCached)
            FUZZ_CHECK(now == saved);
        else
            checkSaved(now, model);
        if (now != saved) {
            const QByteArrayList written = QByteArray::fromStdString(now).split('\n');
            checkLines(lines, written, isWrite);
            lines = written;
            saved = now;
        }
    }
    FUZZ_CHECK(config.Close() && config.GetFileName().empty());
    checkSaved(readFile(name), model);
    return 0;
}
