// An INI file of any bytes, edited by operations that the input chooses beside a model of what they promise, saved and
// loaded again.

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
#include <cmath>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Keys = std::map<std::string, std::string>;
using Model = std::map<std::string, Keys>;

constexpr int MAX_OPERATIONS = 64;

// How a line is to be read, in the words of the format rather than in those of the class.

bool isComment(const std::string &line)
{
    return line.empty() || line[0] == ';' || line[0] == '#' || line[0] == '\'';
}

bool isHeader(const std::string &line)
{
    return line.size() > 2 && line[0] == '[' && line.find(']') == line.size() - 1;
}

bool isKey(const std::string &line)
{
    return line.size() > 1 && line.find_first_of("[]") == line.npos && line.find('=') != line.npos
           && line[0] != '=';
}

std::vector<std::string> linesOf(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/** What a load makes of the text, and its first bad line, or 0. */
Model loaded(const std::string &text, std::uint64_t &badLine)
{
    Model model;
    std::string section;
    std::uint64_t number = 0;
    badLine = 0;
    for (const std::string &raw : linesOf(text)) {
        const std::string line = Trim(raw);
        ++number;
        if (isComment(line))
            continue;
        if (isHeader(line)) {
            section = LocaleUpperCase(Trim(line.substr(1, line.size() - 2)));
            model[section];
        } else if (isKey(line)) {
            const std::size_t equals = line.find('=');
            model[section].try_emplace(LocaleUpperCase(Trim(line.substr(0, equals))),
                                       Trim(line.substr(equals + 1)));
        } else if (badLine == 0) {
            badLine = number;
        }
    }
    return model;
}

bool isSectionName(const std::string &name)
{
    return isHeader('[' + name + ']') && name == Trim(name) && name.find('\n') == name.npos;
}

bool isKeyName(const std::string &name)
{
    return !name.empty() && !isComment(name) && name == Trim(name)
           && name.find_first_of("[]=\n") == name.npos;
}

void checkContent(CfgClass &config, const Model &model)
{
    FUZZ_CHECK(config.GetSectionCount() == model.size());
    unsigned long s = 0;
    for (const auto &[section, keys] : model) {
        FUZZ_CHECK(config.GetSectionName(s++) == section);
        FUZZ_CHECK(config.SectionExists(section) && config.GetKeyCount(section) == keys.size());
        unsigned long k = 0;
        for (const auto &[key, value] : keys) {
            FUZZ_CHECK(config.GetKeyName(section, k) == key);
            FUZZ_CHECK(config.ReadStr(section, k++, value + '?') == value);
            FUZZ_CHECK(config.ReadStr(section, key, value + '?') == value);
        }
    }
}

/** The file beside its model. */
class Editor
{
public:
    Editor(FuzzedDataProvider &input, CfgClass &config, const MemoryFile &file, Model model)
        : m_input(input)
        , m_config(config)
        , m_file(file)
        , m_model(std::move(model))
    {}

    void operate();
    /** What a load of the saved file is to give: all but the lines that no load accepts. */
    void checkSaved() const;
    [[nodiscard]] bool hasErased() const { return m_hasErased; }

private:
    using Address = std::pair<std::string, std::string>; // folded

    std::string name();
    std::string takeSection();
    std::string takeKey(const std::string &section);
    void write(const std::string &section, const std::string &key);
    void writeText(const std::string &section, const std::string &key, const std::string &value);
    void written(bool succeeded, const std::string &section, const std::string &key,
                 const std::string &value, bool isGiven = true);
    void erase(const std::string &section);
    void remove(const std::string &section, const std::string &key);
    void removeByNumber(const std::string &section);
    void readNumbers(const std::string &section, const std::string &key);
    void readTime(const std::string &section, const std::string &key);
    void refused(std::int32_t code) const;
    const std::string *found(const std::string &section, const std::string &key) const;

    FuzzedDataProvider &m_input;
    CfgClass &m_config;
    const MemoryFile &m_file;
    Model m_model;
    std::set<Address> m_bracketed; // written with a bracket in the value
    bool m_isCached = false;
    bool m_hasErased = false;
};

std::string Editor::name()
{
    return upToNul(m_input.ConsumeRandomLengthString(24));
}

/** A section's name, mostly of one that there is, sometimes in small letters. */
std::string Editor::takeSection()
{
    const auto choice = m_input.ConsumeIntegral<std::uint8_t>();
    if (choice % 4 == 0 || m_model.empty())
        return name();
    const auto section = std::next(m_model.begin(), static_cast<long>(choice % m_model.size()));
    return choice % 4 == 1 ? LowerCase(section->first) : section->first;
}

std::string Editor::takeKey(const std::string &section)
{
    const auto choice = m_input.ConsumeIntegral<std::uint8_t>();
    const auto at = m_model.find(LocaleUpperCase(section));
    if (choice % 4 == 0 || at == m_model.end() || at->second.empty())
        return name();
    const Keys &keys = at->second;
    const auto key = std::next(keys.begin(), static_cast<long>(choice % keys.size()));
    return choice % 4 == 1 ? LowerCase(key->first) : key->first;
}

void Editor::refused(std::int32_t code) const
{
    FUZZ_CHECK(m_config.GetErrorCode() == code && m_config.IsFail());
}

const std::string *Editor::found(const std::string &section, const std::string &key) const
{
    const auto keys = m_model.find(LocaleUpperCase(section));
    if (keys == m_model.end())
        return nullptr;
    const auto value = keys->second.find(LocaleUpperCase(key));
    return value == keys->second.end() ? nullptr : &value->second;
}

void Editor::written(bool succeeded, const std::string &section, const std::string &key,
                     const std::string &value, bool isGiven)
{
    const bool isNewSection = !m_model.contains(LocaleUpperCase(section));
    const bool isNewKey = found(section, key) == nullptr;
    if (key.empty() || !isGiven || value.find('\n') != value.npos) {
        FUZZ_CHECK(!succeeded);
        refused(CfgClass::BAD_ARGUMENT);
    } else if ((isNewSection && !isSectionName(section)) || (isNewKey && !isKeyName(key))) {
        FUZZ_CHECK(!succeeded);
        refused(CfgClass::NOT_INSERTED);
    } else {
        FUZZ_CHECK(succeeded && !m_config.IsFail());
        const Address address(LocaleUpperCase(section), LocaleUpperCase(key));
        m_model[address.first][address.second] = Trim(value);
        if (value.find_first_of("[]") != value.npos)
            m_bracketed.insert(address);
        else
            m_bracketed.erase(address);
    }
}

void Editor::writeText(const std::string &section, const std::string &key, const std::string &value)
{
    const auto *const keys = m_model.contains(LocaleUpperCase(section))
                                     ? &m_model.at(LocaleUpperCase(section))
                                     : nullptr;
    if (keys != nullptr && keys->contains(LocaleUpperCase(key)) && m_input.ConsumeBool()) {
        const auto number = static_cast<unsigned long>(
                std::distance(keys->begin(), keys->find(LocaleUpperCase(key))));
        written(m_config.WriteStr(section, number, value), section, key, value);
    } else {
        written(m_config.WriteStr(section, key, value), section, key, value);
    }
}

void Editor::write(const std::string &section, const std::string &key)
{
    const auto bits = m_input.ConsumeIntegral<unsigned long>();
    const auto number = static_cast<long>(bits);
    const auto real = std::bit_cast<double>(bits);
    switch (m_input.ConsumeIntegralInRange(0, 5)) {
    case 0: {
        const unsigned int width = m_input.ConsumeIntegral<std::uint8_t>();
        const auto precision = m_input.ConsumeIntegralInRange(0U, 20U);
        written(m_config.WriteFloat(section, key, real, width, precision), section, key,
                FloatToStr(real, static_cast<int>(width), precision, ' '));
        break;
    }
    case 1:
        written(m_config.WriteInt(section, key, number), section, key, std::to_string(number));
        break;
    case 2:
        written(m_config.WriteUInt(section, key, bits), section, key, std::to_string(bits));
        break;
    case 3:
        written(m_config.WriteBool(section, key, number < 0), section, key, number < 0 ? "1" : "0");
        break;
    case 4: {
        const std::string format = name();
        const long time = number >> 24;
        const std::string text = DateTimeToStr(time, format.c_str());
        written(m_config.WriteDateTime(section, key, format, time), section, key, text,
                !text.empty());
        break;
    }
    default:
        writeText(section, key, name());
    }
}

void Editor::erase(const std::string &section)
{
    const std::string folded = LocaleUpperCase(section);
    const bool isThere = m_model.erase(folded) > 0;
    FUZZ_CHECK(m_config.EraseSection(section) == isThere);
    if (!isThere)
        refused(CfgClass::BAD_ARGUMENT);
    m_hasErased |= isThere;
    std::erase_if(m_bracketed, [&](const Address &address) { return address.first == folded; });
}

void Editor::remove(const std::string &section, const std::string &key)
{
    const bool isThere = found(section, key) != nullptr;
    FUZZ_CHECK(m_config.DeleteKey(section, key) == isThere);
    if (!isThere) {
        refused(CfgClass::BAD_ARGUMENT);
        return;
    }
    m_model[LocaleUpperCase(section)].erase(LocaleUpperCase(key));
    m_bracketed.erase({ LocaleUpperCase(section), LocaleUpperCase(key) });
}

void Editor::removeByNumber(const std::string &section)
{
    const std::string folded = LocaleUpperCase(section);
    FUZZ_CHECK(m_config.SetSection(section) == m_model.contains(folded));
    FUZZ_CHECK(m_config.GetSection() == section);
    const unsigned long number = m_input.ConsumeIntegral<std::uint8_t>();
    const bool isThere = m_model.contains(folded) && number < m_model[folded].size();
    FUZZ_CHECK(m_config.DeleteKey(number) == isThere);
    if (!isThere)
        return;
    const auto key = std::next(m_model[folded].begin(), static_cast<long>(number));
    m_bracketed.erase({ folded, key->first });
    m_model[folded].erase(key);
}

void Editor::readNumbers(const std::string &section, const std::string &key)
{
    const std::string *const value = found(section, key);
    const std::string text = value == nullptr ? "" : *value;
    FUZZ_CHECK(m_config.KeyExists(section, key) == (value != nullptr));
    FUZZ_CHECK(m_config.ReadInt(section, key, 7) == StrToIntDef(text, 7));
    FUZZ_CHECK(m_config.ReadBool(section, key, true) == (StrToIntDef(text, 1) != 0));
    FUZZ_CHECK(m_config.ReadFloat(section, key, 7) == StrToFloatDef(text, 7));
    FUZZ_CHECK(m_config.ReadStr(section, key, "?") == (value == nullptr ? "?" : text));
    FUZZ_CHECK(m_config.GetErrorCode()
               == (value == nullptr ? CfgClass::BAD_ARGUMENT : CfgClass::SUCCESS));
}

void Editor::readTime(const std::string &section, const std::string &key)
{
    const std::string *const value = found(section, key);
    const std::string format = name();
    FUZZ_CHECK(m_config.ReadDateTime(section, key, format, 7)
               == StrToDateTimeDef(value == nullptr ? "" : value->c_str(), format.c_str(), 7));
}

void Editor::operate()
{
    const auto operation = m_input.ConsumeIntegralInRange(0, 15);
    const std::string section = takeSection();
    const std::string key = takeKey(section);
    switch (operation) {
    case 0:
        erase(section);
        break;
    case 1:
        remove(section, key);
        break;
    case 2:
        removeByNumber(section);
        break;
    case 3:
        m_isCached = m_input.ConsumeBool();
        m_config.SetCached(m_isCached);
        FUZZ_CHECK(!m_config.IsFail());
        break;
    case 4:
        FUZZ_CHECK(m_config.Flush());
        checkSaved();
        break;
    case 5:
        readNumbers(section, key);
        break;
    case 6:
        readTime(section, key);
        break;
    case 7:
        checkContent(m_config, m_model);
        break;
    default:
        write(section, key);
        if (!m_isCached && operation == 8)
            checkSaved();
    }
}

void Editor::checkSaved() const
{
    Model saved;
    CfgClass config;
    FUZZ_CHECK(config.OpenReadOnly(m_file.name()));
    for (unsigned long s = 0; s < config.GetSectionCount(); ++s) {
        const std::string section = config.GetSectionName(s);
        Keys &keys = saved[section];
        for (unsigned long k = 0; k < config.GetKeyCount(section); ++k)
            keys[config.GetKeyName(section, k)] = config.ReadStr(section, k, "");
    }

    Model expected = m_model;
    for (const auto &[section, key] : m_bracketed) {
        expected[section].erase(key);
        saved[section].erase(key);
    }
    // Without a key and a header, nothing tells of the section before all headers.
    for (Model *const model : { &expected, &saved }) {
        if (model->contains("") && model->at("").empty())
            model->erase("");
    }
    FUZZ_CHECK(saved == expected);
}

/** Whether all lines that say nothing are still there, in their order. */
bool keepsComments(const std::string &before, const std::string &after)
{
    const std::vector<std::string> lines = linesOf(after);
    auto at = lines.begin();
    for (const std::string &line : linesOf(before)) {
        const std::string trimmed = Trim(line);
        if (!isComment(trimmed) && (isHeader(trimmed) || isKey(trimmed)))
            continue;
        // A blank line at the very end is what a saved file does not show.
        at = std::find(at, lines.end(), line);
        if (at == lines.end())
            return line.empty();
        ++at;
    }
    return true;
}

/** Loads what was saved and saves it elsewhere, which gives the same but a final line feed. */
void checkSecondSave(const std::string &first, bool isReg)
{
    const MemoryFile file;
    const MemoryFile other;
    file.write(first);
    const std::unique_ptr<CfgClass> config(isReg ? new RegCfgClass : new CfgClass);
    FUZZ_CHECK(config->Open(file.name()) && config->SaveAs(other.name()));
    FUZZ_CHECK(config->GetFileName() == other.name());
    FUZZ_CHECK(other.contents() + (first.ends_with('\n') ? "\n" : "") == first);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto options = input.ConsumeIntegral<std::uint8_t>();
    const bool isReg = options % 2 != 0;
    const LocaleScope scope(options / 2);
    const std::string text = input.ConsumeRandomLengthString();

    const MemoryFile file;
    file.write(text);
    const std::unique_ptr<CfgClass> config(isReg ? new RegCfgClass : new CfgClass);
    FUZZ_CHECK(config->Open(file.name()));
    std::uint64_t badLine = 0;
    const Model model = loaded(text, badLine);
    FUZZ_CHECK(config->GetErrorLine() == badLine);
    FUZZ_CHECK(config->GetErrorCode()
               == (badLine == 0 ? CfgClass::SUCCESS : CfgClass::SYNTAX_ERROR));
    checkContent(*config, model);

    Editor editor(input, *config, file, model);
    for (int i = 0; i < MAX_OPERATIONS && input.remaining_bytes() > 0; ++i)
        editor.operate();

    FUZZ_CHECK(config->Close() && config->GetFileName().empty());
    editor.checkSaved();
    const std::string first = file.contents();
    FUZZ_CHECK(editor.hasErased() || keepsComments(text, first));
    checkSecondSave(first, isReg);
    return 0;
}
