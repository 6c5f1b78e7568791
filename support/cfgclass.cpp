#include "support/cfgclass.h"

#include "support/utils.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

namespace {

/** What a line says. The views point into the line. */
struct Line
{
    enum Kind { COMMENT, HEADER, KEY, MALFORMED };

    Kind kind;
    std::string_view name = {};
    std::string_view value = {};
};

Line parsed(const std::string &raw)
{
    const std::string_view line = TrimmedView(raw.c_str()); // up to a NUL, like all texts
    if (line.empty() || std::strchr(";#'", line.front()) != nullptr)
        return { Line::COMMENT };
    if (line.size() > 2 && line.front() == '[' && line.find(']') == line.size() - 1)
        return { Line::HEADER, TrimmedView(line.substr(1, line.size() - 2)) };

    const std::size_t equals = line.find('=');
    const bool hasBracket = line.find('[') != line.npos || line.find(']') != line.npos;
    if (line.size() < 2 || hasBracket || equals == line.npos || equals == 0)
        return { Line::MALFORMED };
    return { Line::KEY, TrimmedView(line.substr(0, equals)), TrimmedView(line.substr(equals + 1)) };
}

bool isHeader(const std::string &line)
{
    return parsed(line).kind == Line::HEADER;
}

std::string headerLine(std::string_view name)
{
    return '[' + std::string(name) + ']';
}

std::string keyLine(std::string_view name, std::string_view value)
{
    std::string line(name);
    return line.append(" = ").append(value);
}

/** Whether `line` is one line that gives back `name`. */
bool givesBack(const std::string &line, Line::Kind kind, const std::string &name)
{
    const Line read = parsed(line);
    return line.find('\n') == line.npos && read.kind == kind && read.name == name;
}

using std::filesystem::file_type;

file_type typeOf(const std::string &name)
{
    std::error_code ignored; // opening fails then, too
    return std::filesystem::status(name, ignored).type();
}

bool isPipe(const std::string &name)
{
    return typeOf(name) == file_type::fifo;
}

/** Devices and pipes are not read: some have no end, some block until there is a writer. */
bool isSpecialFile(const std::string &name)
{
    const file_type type = typeOf(name);
    return type == file_type::character || type == file_type::block || type == file_type::fifo
           || type == file_type::socket;
}

bool isGiven(const char *text)
{
    return text != nullptr && *text != '\0';
}

} // namespace

CfgClass::CfgClass()
    : m_currentSection(m_sections.end())
{}

CfgClass::~CfgClass()
{
    CfgClass::SaveFile();
}

bool CfgClass::succeed()
{
    m_errorCode = SUCCESS;
    return true;
}

bool CfgClass::fail(ErrorCode code)
{
    m_errorCode = code;
    return false;
}

bool CfgClass::isOpen(bool argumentsGiven)
{
    if (!argumentsGiven)
        return fail(BAD_ARGUMENT);
    return m_fileName.empty() ? fail(NO_FILE_OPEN) : succeed();
}

bool CfgClass::isWritable(bool argumentsGiven)
{
    if (!isOpen(argumentsGiven))
        return false;
    return m_readOnly ? fail(FILE_READ_ONLY) : succeed();
}

// Loading, saving and parsing.

bool CfgClass::GetUpperCaseWriteCache() const
{
    return true;
}

bool CfgClass::LoadFile(bool noLines)
{
    ClearReadCache();
    ClearWriteCache();
    m_errorLine = 0;
    if (isSpecialFile(m_fileName))
        return fail(FILE_ERROR);
    std::ifstream file(m_fileName, std::ios::binary);
    if (!file)
        return fail(FILE_ERROR);

    std::uint64_t number = 1;
    for (std::string line; std::getline(file, line); ++number) {
        if (ParseLine(line, noLines))
            continue;
        if (m_errorLine == 0)
            m_errorLine = number;
        if (m_errorCode != SYNTAX_ERROR)
            return false;
    }
    if (file.bad()) {
        ClearReadCache();
        ClearWriteCache();
        m_errorLine = number;
        return fail(FILE_ERROR);
    }
    return m_errorLine == 0 ? succeed() : fail(SYNTAX_ERROR);
}

bool CfgClass::SaveFile()
{
    m_errorCode = m_fileName.empty() ? NO_FILE_OPEN : m_readOnly ? FILE_READ_ONLY : SUCCESS;
    if (m_errorCode != SUCCESS || !m_modified)
        return true;
    if (!writeLines(m_fileName))
        return fail(FILE_ERROR);
    m_modified = false;
    return succeed();
}

bool CfgClass::writeLines(const std::string &name) const
{
    if (isPipe(name))
        return false; // it would wait for a reader
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    std::string_view separator;
    for (const std::string &line : m_lines) {
        file << separator << line;
        separator = "\n";
    }
    file.close(); // reports a full disk
    return !file.fail();
}

void CfgClass::ClearReadCache()
{
    m_sections.clear();
    m_currentSection = m_sections.end();
}

void CfgClass::ClearWriteCache()
{
    m_lines.clear();
}

bool CfgClass::ParseLine(const std::string &raw, bool noLines)
{
    if (!noLines)
        m_lines.push_back(raw);
    const LinePos position = noLines ? m_lines.end() : std::prev(m_lines.end());

    const Line line = parsed(raw);
    bool accepted = true;
    switch (line.kind) {
    case Line::COMMENT:
        return succeed();
    case Line::MALFORMED:
        return fail(SYNTAX_ERROR);
    case Line::HEADER:
        accepted = enterSection(LocaleUpperCase(std::string(line.name)), position);
        break;
    case Line::KEY:
        accepted =
                addKey(LocaleUpperCase(std::string(line.name)), std::string(line.value), position);
        break;
    }
    if (!accepted) {
        ClearReadCache();
        ClearWriteCache();
        return false;
    }
    return succeed();
}

bool CfgClass::enterSection(const std::string &name, LinePos line)
{
    SectionPos section;
    if (!LocateSection(name, section))
        return InsertSection(name, line, false);
    m_currentSection = section;
    if (line != m_lines.end())
        section->second.headers.push_back(line);
    return true;
}

bool CfgClass::addKey(const std::string &key, const std::string &value, LinePos line)
{
    if (m_currentSection == m_sections.end() && !InsertSection("", m_lines.end(), false))
        return false;
    KeyPos at;
    if (!LocateKey(m_currentSection, key, at))
        return InsertKey(key, value, m_currentSection, at, line, false);
    if (line != m_lines.end())
        at->second.repeated.push_back(line);
    return true;
}

// Sections and keys.

bool CfgClass::InsertSection(const std::string &name, LinePos line, bool newLine)
{
    if (newLine && !givesBack(headerLine(name), Line::HEADER, name))
        return fail(NOT_INSERTED);
    const auto [section, inserted] = m_sections.try_emplace(LocaleUpperCase(name));
    if (!inserted)
        return fail(NOT_INSERTED);

    m_currentSection = section;
    if (newLine)
        line = m_lines.insert(m_lines.end(), headerLine(writtenName(name, section->first)));
    if (line != m_lines.end())
        section->second.headers.push_back(line);
    return succeed();
}

bool CfgClass::InsertKey(const std::string &key, const std::string &value, SectionPos section,
                         KeyPos &at, LinePos line, bool newLine)
{
    if (key.empty())
        return fail(BAD_ARGUMENT);
    if (section == m_sections.end() || (newLine && !givesBack(keyLine(key, {}), Line::KEY, key)))
        return fail(NOT_INSERTED);
    SectRec &record = section->second;
    const std::size_t before = record.keys.size();
    at = record.keys.try_emplace(at, LocaleUpperCase(key));
    if (record.keys.size() == before)
        return fail(NOT_INSERTED);

    if (newLine)
        line = m_lines.insert(newKeyPosition(record), keyLine(writtenName(key, at->first), value));
    at->second.value = TrimmedView(value);
    at->second.line = line;
    if (line != m_lines.end())
        record.keyLines.push_back(line);
    return succeed();
}

bool CfgClass::LocateSection(const std::string &name, SectionPos &section)
{
    section = m_sections.find(LocaleUpperCase(name));
    return section == m_sections.end() ? fail(BAD_ARGUMENT) : succeed();
}

bool CfgClass::LocateKey(SectionPos section, const std::string &key, KeyPos &at)
{
    if (section == m_sections.end())
        return fail(BAD_ARGUMENT);
    const std::string name = LocaleUpperCase(key);
    at = section->second.keys.lower_bound(name);
    return at == section->second.keys.end() || at->first != name ? fail(BAD_ARGUMENT) : succeed();
}

const std::string &CfgClass::writtenName(const std::string &name, const std::string &capitals) const
{
    return GetUpperCaseWriteCache() ? capitals : name;
}

CfgClass::LinePos CfgClass::newKeyPosition(SectRec &section)
{
    if (!section.keyLines.empty())
        return std::next(section.keyLines.back());
    // Keys without a header stand before all sections.
    return section.headers.empty() ? m_lines.begin() : std::next(section.headers.front());
}

void CfgClass::rewriteKey(KeyRec &key, const std::string &value)
{
    std::string &line = *key.line;
    line = keyLine(TrimmedView(std::string_view(line).substr(0, line.find('='))), value);
    key.value = TrimmedView(value);
}

void CfgClass::eraseLines(const KeyRec &key)
{
    m_lines.erase(key.line);
    for (const LinePos line : key.repeated)
        m_lines.erase(line);
}

void CfgClass::removeKey(SectRec &section, KeyPos key)
{
    std::erase(section.keyLines, key->second.line);
    eraseLines(key->second);
    section.keys.erase(key);
}

void CfgClass::removeSection(SectionPos section)
{
    for (const auto &[name, key] : section->second.keys)
        eraseLines(key);
    for (const LinePos header : section->second.headers)
        m_lines.erase(header, std::find_if(std::next(header), m_lines.end(), isHeader));
    m_currentSection = m_sections.end();
    m_sections.erase(section);
}

bool CfgClass::commit()
{
    m_modified = true;
    return m_cached ? succeed() : SaveFile();
}

// Files.

bool CfgClass::openAs(const char *name, bool readOnly)
{
    if (!isGiven(name))
        return fail(BAD_ARGUMENT);
    std::string fileName = name; // which may be the one that is being closed
    Close();
    m_fileName = std::move(fileName);
    const bool loaded = LoadFile(readOnly);
    const bool canBeCreated = m_errorCode == FILE_ERROR && !readOnly;
    if (!loaded && !canBeCreated && m_errorCode != SYNTAX_ERROR) {
        m_fileName.clear();
        return false;
    }
    m_readOnly = readOnly;
    return true;
}

bool CfgClass::Open(const char *name)
{
    return openAs(name, false);
}

bool CfgClass::OpenReadOnly(const char *name)
{
    return openAs(name, true);
}

bool CfgClass::Close()
{
    const bool saved = SaveFile();
    ClearReadCache();
    ClearWriteCache();
    m_fileName.clear();
    m_selectedSection.clear();
    m_readOnly = false;
    m_modified = false;
    return saved;
}

bool CfgClass::SaveAs(const char *name)
{
    // A file that was opened for reading has no lines to write.
    if (!isGiven(name) || !isWritable(true) || !writeLines(name))
        return fail(NOT_SAVED_AS);
    m_fileName = name;
    m_modified = false;
    return succeed();
}

std::string CfgClass::GetFileName() const
{
    return m_fileName;
}

bool CfgClass::Rename(const char *name)
{
    if (!isOpen(isGiven(name)))
        return false;
    m_fileName = name;
    return true;
}

bool CfgClass::SetFileName(const char *name, bool readOnly)
{
    return readOnly ? OpenReadOnly(name) : Open(name);
}

bool CfgClass::FlushCache()
{
    return Flush();
}

// Sections.

bool CfgClass::SetSection(const char *section)
{
    if (!isOpen(section != nullptr))
        return false;
    m_selectedSection = section;
    SectionPos ignored;
    return LocateSection(m_selectedSection, ignored);
}

std::string CfgClass::GetSection() const
{
    return m_selectedSection;
}

bool CfgClass::SectionExists(const char *section)
{
    SectionPos ignored;
    return isOpen(section != nullptr) && LocateSection(section, ignored);
}

bool CfgClass::EraseSection(const char *section)
{
    SectionPos found;
    if (!isWritable(section != nullptr) || !LocateSection(section, found))
        return false;
    removeSection(found);
    return commit();
}

unsigned long CfgClass::GetSectionCount()
{
    succeed();
    return m_sections.size();
}

std::string CfgClass::GetSectionName(unsigned long index)
{
    if (index >= m_sections.size()) {
        fail(BAD_ARGUMENT);
        return {};
    }
    succeed();
    return std::next(m_sections.begin(), static_cast<std::ptrdiff_t>(index))->first;
}

// Keys.

bool CfgClass::KeyExists(const char *section, const char *key)
{
    SectionPos found;
    KeyPos ignored;
    return isOpen(section != nullptr && isGiven(key)) && LocateSection(section, found)
           && LocateKey(found, key, ignored);
}

bool CfgClass::DeleteKey(const char *section, const char *key)
{
    SectionPos found;
    KeyPos at;
    if (!isWritable(section != nullptr && isGiven(key)) || !LocateSection(section, found)
        || !LocateKey(found, key, at))
        return false;
    removeKey(found->second, at);
    return commit();
}

unsigned long CfgClass::GetKeyCount(const char *section)
{
    SectionPos found;
    if (section == nullptr || !LocateSection(section, found)) {
        fail(BAD_ARGUMENT);
        return 0;
    }
    return found->second.keys.size();
}

std::string CfgClass::GetKeyName(const char *section, unsigned long index)
{
    SectionPos found;
    if (section == nullptr || !LocateSection(section, found)
        || index >= found->second.keys.size()) {
        fail(BAD_ARGUMENT);
        return {};
    }
    return std::next(found->second.keys.begin(), static_cast<std::ptrdiff_t>(index))->first;
}

// Values.

std::string CfgClass::ReadStr(const char *section, const char *key, const char *def)
{
    SectionPos found;
    KeyPos at;
    if (isOpen(section != nullptr && isGiven(key)) && LocateSection(section, found)
        && LocateKey(found, key, at))
        return at->second.value;
    return def == nullptr ? "" : def;
}

bool CfgClass::WriteStr(const char *section, const char *key, const char *value)
{
    const bool isLine = value != nullptr && std::strchr(value, '\n') == nullptr;
    if (!isWritable(section != nullptr && isGiven(key) && isLine))
        return false;

    SectionPos found;
    const bool isNew = !LocateSection(section, found);
    if (isNew) {
        if (!InsertSection(section, m_lines.end(), true))
            return false;
        found = m_currentSection;
    }
    KeyPos at;
    if (LocateKey(found, key, at)) {
        rewriteKey(at->second, value);
    } else if (!InsertKey(key, value, found, at, m_lines.end(), true)) {
        if (isNew)
            removeSection(found);
        return false;
    }
    return commit();
}

void CfgClass::SetCached(bool cached)
{
    succeed();
    if (cached == m_cached)
        return;
    m_cached = cached;
    if (!cached)
        Flush();
}

bool CfgClass::Flush()
{
    return SaveFile();
}

bool CfgClass::IsFail() const
{
    return m_errorCode != SUCCESS;
}

std::int32_t CfgClass::GetErrorCode() const
{
    return m_errorCode;
}

std::uint64_t CfgClass::GetErrorLine() const
{
    return m_errorLine;
}

// The system-wide configuration file.

RegCfgClass::RegCfgClass() = default;
RegCfgClass::~RegCfgClass() = default;

bool RegCfgClass::SaveAs(const char *name)
{
    return name == nullptr ? fail(BAD_ARGUMENT) : CfgClass::SaveAs(name);
}

bool RegCfgClass::GetUpperCaseWriteCache() const
{
    return false;
}

bool RegCfgClass::LoadFile(bool noLines)
{
    return CfgClass::LoadFile(noLines);
}

bool RegCfgClass::SaveFile()
{
    return CfgClass::SaveFile();
}
