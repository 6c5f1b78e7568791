// An INI file of any bytes, edited by operations that the input chooses, saved and loaded again. What is held against the
// class is a plain map, and what its own loader makes of short texts.

#include "fuzz/check.h"
#include "fuzz/localescope.h"
#include "fuzz/memoryfile.h"
#include "fuzz/texts.h"
#include "support/cfgclass.h"
#include "support/datetext.h"
#include "support/utils.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <bit>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Keys = std::map<std::string, std::string>;
using Content = std::map<std::string, Keys>;

std::unique_ptr<CfgClass> made(bool isReg)
{
    return isReg ? std::make_unique<RegCfgClass>() : std::make_unique<CfgClass>();
}

/** Everything, by number; what is asked by name and as other types has to agree. */
Content content(CfgClass &config)
{
    Content found;
    for (unsigned long s = 0; s < config.GetSectionCount(); ++s) {
        const std::string section = config.GetSectionName(s);
        FUZZ_CHECK(found.empty() || found.rbegin()->first < section);
        FUZZ_CHECK(config.SectionExists(section));
        Keys &keys = found[section];
        for (unsigned long k = 0; k < config.GetKeyCount(section); ++k) {
            const std::string key = config.GetKeyName(section, k);
            FUZZ_CHECK(keys.empty() || keys.rbegin()->first < key);
            const std::string value = keys[key] = config.ReadStr(section, k, "?");
            FUZZ_CHECK(config.ReadStr(section, key, value + '?') == value && !config.IsFail());
            FUZZ_CHECK(config.ReadInt(section, key, 7) == StrToIntDef(value, 7));
            FUZZ_CHECK(config.ReadBool(section, key, true) == (StrToIntDef(value, 1) != 0));
            FUZZ_CHECK(config.ReadFloat(section, key, 7) == StrToFloatDef(value, 7));
            FUZZ_CHECK(config.ReadDateTime(section, key, "hh:nn", 7)
                       == StrToDateTimeDef(value.c_str(), "hh:nn", 7));
        }
    }
    return found;
}

Content loaded(const std::string &text)
{
    const MemoryFile file;
    file.write(text);
    CfgClass config;
    FUZZ_CHECK(config.OpenReadOnly(file.name()));
    return content(config);
}

/** Whether a load of `text` gives what was saved, but for lines that it is not to accept. */
void checkSaved(const std::string &text, Content expected)
{
    Content saved = loaded(text);
    for (auto &[section, keys] : expected) {
        for (const auto &[key, value] : Keys(keys)) {
            if (value.find_first_of("[]") == value.npos)
                continue;
            keys.erase(key);
            if (saved.contains(section))
                saved.at(section).erase(key);
        }
    }
    for (Content *const side : { &expected, &saved }) // no key and no header: nothing tells of it
        std::erase_if(*side,
                      [](const auto &row) { return row.first.empty() && row.second.empty(); });
    FUZZ_CHECK(saved == expected);
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    for (std::istringstream in(text + '\n'); in.peek() != EOF;)
        std::getline(in, lines.emplace_back());
    return lines;
}

/** That a write changed one line at most and added others, and that a removal took some. */
void checkLines(const std::string &before, const std::string &after, bool isWrite)
{
    const std::vector<std::string> old = linesOf(before);
    const std::vector<std::string> now = linesOf(after);
    if (isWrite) {
        const auto front = std::mismatch(old.begin(), old.end(), now.begin(), now.end());
        const auto back = std::mismatch(old.rbegin(), std::make_reverse_iterator(front.first),
                                        now.rbegin(), std::make_reverse_iterator(front.second));
        FUZZ_CHECK(std::distance(front.first, back.first.base()) <= 1);
        return;
    }
    auto from = old.begin();
    for (const std::string &line : now) {
        from = std::find(from, old.end(), line);
        FUZZ_CHECK(after.empty() || from++ != old.end());
    }
}

/** A name, mostly one that there is, sometimes in small letters. */
template <class Names>
std::string take(FuzzedDataProvider &input, const Names &names)
{
    const auto choice = input.ConsumeIntegral<std::uint8_t>();
    if (choice % 4 == 0 || names.empty())
        return upToNul(input.ConsumeRandomLengthString(24));
    const std::string name = std::next(names.begin(), choice % names.size())->first;
    return choice % 4 == 1 ? LowerCase(name) : name;
}

/** Writes a value of some type; returns as which text, or a line feed where it has none. */
std::string write(FuzzedDataProvider &input, CfgClass &config, const std::string &section,
                  const std::string &key)
{
    const auto bits = input.ConsumeIntegral<unsigned long>();
    const auto number = static_cast<long>(bits);
    const int type = input.ConsumeIntegralInRange(0, 2);
    if (type == 0) {
        config.WriteFloat(section, key, std::bit_cast<double>(bits), 9, 17);
        return FloatToStr(std::bit_cast<double>(bits), 9, 17, ' ');
    }
    if (type == 1) {
        const std::string text = DateTimeToStr(number >> 24, "dd/mm/yyyy hh:nn:ss");
        config.WriteDateTime(section, key, "dd/mm/yyyy hh:nn:ss", number >> 24);
        return text.empty() ? "\n" : text;
    }
    std::string text = upToNul(input.ConsumeRandomLengthString(24));
    config.WriteStr(section, key, text);
    return text;
}

/** One operation on the file and, where it is to succeed, on `model`. True for one that writes. */
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
        FUZZ_CHECK(config.GetErrorCode() == (hasSection ? 0 : CfgClass::BAD_ARGUMENT));
    } else if (operation == 1) {
        FUZZ_CHECK(config.DeleteKey(section, key) == (hasKey && model[s].erase(k) > 0));
        FUZZ_CHECK(config.GetErrorCode() == (hasKey ? 0 : CfgClass::BAD_ARGUMENT));
    } else {
        const std::string value = write(input, config, section, key);
        const bool isReadable =
                (hasSection || loaded('[' + section + ']') == Content{ { s, {} } })
                && (hasKey || loaded("[a]\n" + key + '=') == Content{ { "A", { { k, "" } } } });
        const bool isGiven = !key.empty() && value.find('\n') == value.npos;
        FUZZ_CHECK(config.GetErrorCode()
                   == (!isGiven      ? CfgClass::BAD_ARGUMENT
                       : !isReadable ? CfgClass::NOT_INSERTED
                                     : CfgClass::SUCCESS));
        if (!config.IsFail())
            model[s][k] = Trim(value);
    }
    return operation > 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto options = input.ConsumeIntegral<std::uint8_t>();
    const bool isReg = options % 2 != 0;
    const bool isCached = options % 4 > 1;
    const LocaleScope scope(options / 4);
    const std::string text = input.ConsumeRandomLengthString();

    const MemoryFile file;
    file.write(text);
    const std::unique_ptr<CfgClass> config = made(isReg);
    FUZZ_CHECK(config->Open(file.name()));
    const std::uint64_t badLine = config->GetErrorLine();
    FUZZ_CHECK(config->GetErrorCode() == (badLine == 0 ? 0 : CfgClass::SYNTAX_ERROR));
    FUZZ_CHECK(badLine == 0 || loaded(linesOf(text).at(badLine - 1)).empty());

    Content model = content(*config);
    config->SetCached(isCached);
    // A save gives every line as it was, and no final line feed.
    std::string before = text.substr(0, text.size() - (text.ends_with('\n') ? 1 : 0));
    for (int i = 0; i < 32 && input.remaining_bytes() > 0; ++i) {
        const std::string held = file.contents();
        const bool isWrite = edit(input, *config, model);
        FUZZ_CHECK(content(*config) == model);
        const std::string after = file.contents();
        if (isCached) {
            FUZZ_CHECK(after == held);
        } else if (checkSaved(after, model); after != held) {
            checkLines(before, after, isWrite);
            before = after;
        }
    }
    FUZZ_CHECK(config->Close() && config->GetFileName().empty());
    const std::string saved = file.contents();
    checkSaved(saved, model);

    // Loaded and saved elsewhere, it is the same but for a final line feed.
    const MemoryFile other;
    const std::unique_ptr<CfgClass> again = made(isReg);
    FUZZ_CHECK(again->Open(file.name()) && again->SaveAs(other.name()));
    FUZZ_CHECK(again->GetFileName() == other.name());
    FUZZ_CHECK(other.contents() + (saved.ends_with('\n') ? "\n" : "") == saved);
    return 0;
}
