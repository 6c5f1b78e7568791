#include "support/cfgclass.h"

#include "support/datetext.h"
#include "support/utils.h"

#include <algorithm>
#include <cstdlib>
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

/** Whether capitals and signs of ASCII are all there is, on which folding has no effect. */
bool isFolded(std::string_view name)
{
    return std::all_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x80 && (c < 'a' || c > 'z');
    });
}

/** A name as the maps hold it. Most are so already, and the locale's way is a slow one. */
std::string folded(std::string_view name)
{
    std::string result(name);
    return isFolded(name) ? result : LocaleUpperCase(result);
}

/** The same without a copy where none is needed; `room` holds the result where one is. */
const std::string &folded(const std::string &name, std::string &room)
{
    return isFolded(name) ? name : (room = LocaleUpperCase(name));
}

using std::filesystem::file_type;

file_type typeOf(const std::string &name)
{
    std::error_code ignored; // what cannot be told apart cannot be opened either
    return std::filesystem::status(name, ignored).type();
}

bool isPipe(const std::string &name)
{
    return typeOf(name) == file_type::fifo;
}

/** Devices and pipes can be without an end or a beginning; they are not read. */
bool isSpecialFile(const std::string &name)
{
    const file_type type = typeOf(name);
    return type == file_type::character || type == file_type::block || type == file_type::fifo
           || type == file_type::socket;
}

/** Texts are passed on as the characters up to the first NUL. */
const char *chars(const char *text)
{
    return text;
}

const char *chars(const std::string &text)
{
    return text.c_str();
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

template <class Map>
typename Map::iterator CfgClass::Cursor<Map>::find(Map &map, unsigned long index)
{
    if (index >= map.size())
        return map.end();

    const auto stepsFrom = [index](unsigned long from) {
        return static_cast<long>(index) - static_cast<long>(from);
    };
    const bool fromEnd = index > map.size() / 2;
    Pos item = fromEnd ? map.end() : map.begin();
    long steps = stepsFrom(fromEnd ? map.size() : 0);
    if (m_isSet && std::abs(stepsFrom(m_index)) < std::abs(steps)) {
        item = m_item;
        steps = stepsFrom(m_index);
    }
    std::advance(item, steps);
    m_isSet = true;
    m_index = index;
    return m_item = item;
}

template <class Map>
void CfgClass::Cursor<Map>::inserted(Pos item)
{
    if (m_isSet && item->first < m_item->first)
        ++m_index;
}

template <class Map>
void CfgClass::Cursor<Map>::removing(Pos item)
{
    if (!m_isSet || item->first > m_item->first)
        return;
    if (m_index == 0) {
        reset();
        return;
    }
    --m_index;
    if (item == m_item)
        --m_item;
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
    file.close(); // tells of a full disk, too
    return !file.fail();
}

void CfgClass::ClearReadCache()
{
    m_sections.clear();
    m_currentSection = m_sections.end();
    m_sectionCursor.reset();
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
        accepted = enterSection(folded(line.name), position);
        break;
    case Line::KEY:
        accepted = addKey(folded(line.name), std::string(line.value), position);
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
    if (!LocateKey(m_currentSection, key, m_currentKey))
        return InsertKey(key, value, m_currentSection, m_currentKey, line, false);
    if (line != m_lines.end())
        m_currentKey->second.repeated.push_front(line);
    return true;
}

// Sections and keys.

bool CfgClass::InsertSection(const std::string &name, LinePos line, bool newLine)
{
    if (newLine && !givesBack(headerLine(name), Line::HEADER, name))
        return fail(NOT_INSERTED);
    const auto [section, inserted] = m_sections.try_emplace(folded(name));
    if (!inserted)
        return fail(NOT_INSERTED);

    m_sectionCursor.inserted(section);
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
    at = record.keys.try_emplace(at, folded(key));
    if (record.keys.size() == before)
        return fail(NOT_INSERTED);

    record.newest = at;
    record.cursor.inserted(at);
    if (newLine)
        line = m_lines.insert(newKeyPosition(record), keyLine(writtenName(key, at->first), value));
    at->second.value = TrimmedView(value);
    at->second.line = line;
    if (line != m_lines.end())
        at->second.order = record.keyLines.insert(record.keyLines.end(), line);
    return succeed();
}

bool CfgClass::LocateSection(const std::string &name, SectionPos &section)
{
    std::string capitals;
    section = m_sections.find(folded(name, capitals));
    return section == m_sections.end() ? fail(BAD_ARGUMENT) : succeed();
}

bool CfgClass::LocateKey(SectionPos section, const std::string &key, KeyPos &at)
{
    if (section == m_sections.end())
        return fail(BAD_ARGUMENT);
    std::string capitals;
    const std::string &name = folded(key, capitals);
    at = placeOf(section->second, name);
    return at == section->second.keys.end() || at->first != name ? fail(BAD_ARGUMENT) : succeed();
}

CfgClass::KeyPos CfgClass::placeOf(SectRec &section, const std::string &name)
{
    Keys &keys = section.keys;
    if (section.newest != keys.end() && section.newest->first < name) {
        const KeyPos next = std::next(section.newest);
        if (next == keys.end() || name <= next->first)
            return next;
    }
    return keys.lower_bound(name);
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

void CfgClass::removeKey(SectRec &section, KeyPos key)
{
    section.newest = section.keys.end();
    section.cursor.removing(key);
    for (const LinePos line : key->second.repeated)
        m_lines.erase(line);
    m_lines.erase(key->second.line);
    section.keyLines.erase(key->second.order);
    section.keys.erase(key);
}

void CfgClass::removeSection(SectionPos section)
{
    SectRec &record = section->second;
    while (!record.keys.empty())
        removeKey(record, record.keys.begin());
    for (const LinePos header : record.headers)
        m_lines.erase(header, std::find_if(std::next(header), m_lines.end(), isHeader));
    m_sectionCursor.removing(section);
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
    const SectionPos section = m_sectionCursor.find(m_sections, index);
    if (section == m_sections.end()) {
        fail(BAD_ARGUMENT);
        return {};
    }
    succeed();
    return section->first;
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
    return found->second.cursor.find(found->second.keys, index)->first;
}

// Typed reads and writes.

std::string CfgClass::ReadStr(const char *section, const char *key, const char *def)
{
    SectionPos found;
    KeyPos at;
    if (isOpen(section != nullptr && isGiven(key)) && LocateSection(section, found)
        && LocateKey(found, key, at))
        return at->second.value;
    return def == nullptr ? "" : def;
}

long CfgClass::ReadInt(const char *section, const char *key, long def)
{
    return StrToIntDef(ReadStr(section, key, ""), def);
}

bool CfgClass::ReadBool(const char *section, const char *key, bool def)
{
    return StrToIntDef(ReadStr(section, key, ""), def ? 1 : 0) != 0;
}

long CfgClass::ReadDateTime(const char *section, const char *key, const char *format, long def)
{
    return StrToDateTimeDef(ReadStr(section, key, "").c_str(), format, def);
}

double CfgClass::ReadFloat(const char *section, const char *key, double def)
{
    return StrToFloatDef(ReadStr(section, key, ""), def);
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

bool CfgClass::WriteInt(const char *section, const char *key, long value)
{
    return WriteStr(section, key, IntToStr(value, 0, '0').c_str());
}

bool CfgClass::WriteUInt(const char *section, const char *key, unsigned long value)
{
    return WriteStr(section, key, UIntToStr(value, 0, '0').c_str());
}

bool CfgClass::WriteBool(const char *section, const char *key, bool value)
{
    return WriteStr(section, key, value ? "1" : "0");
}

bool CfgClass::WriteDateTime(const char *section, const char *key, const char *format, long value)
{
    const std::string text = DateTimeToStr(value, format);
    return WriteStr(section, key, text.empty() ? nullptr : text.c_str());
}

bool CfgClass::WriteFloat(const char *section, const char *key, double value, unsigned int width,
                          unsigned int precision)
{
    return WriteStr(section, key,
                    FloatToStr(value, static_cast<int>(width), precision, ' ').c_str());
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

// The other shapes. Strings are passed on as their characters, no section means the selected one,
// and a number means the key with that number: none, and so a bad argument, when there are less.

bool CfgClass::Open(const std::string &name)
{
    return Open(name.c_str());
}

bool CfgClass::OpenReadOnly(const std::string &name)
{
    return OpenReadOnly(name.c_str());
}

bool CfgClass::SaveAs(const std::string &name)
{
    return SaveAs(name.c_str());
}

bool CfgClass::SetSection(const std::string &section)
{
    return SetSection(section.c_str());
}

bool CfgClass::SectionExists(const std::string &section)
{
    return SectionExists(section.c_str());
}

bool CfgClass::SectionExists()
{
    return SectionExists(m_selectedSection);
}

bool CfgClass::EraseSection(const std::string &section)
{
    return EraseSection(section.c_str());
}

bool CfgClass::EraseSection()
{
    return EraseSection(m_selectedSection);
}

bool CfgClass::KeyExists(const std::string &section, const std::string &key)
{
    return KeyExists(section.c_str(), key.c_str());
}

bool CfgClass::KeyExists(const char *key)
{
    return KeyExists(m_selectedSection.c_str(), key);
}

bool CfgClass::KeyExists(const std::string &key)
{
    return KeyExists(key.c_str());
}

bool CfgClass::DeleteKey(const std::string &section, const std::string &key)
{
    return DeleteKey(section.c_str(), key.c_str());
}

bool CfgClass::DeleteKey(const char *key)
{
    return DeleteKey(m_selectedSection.c_str(), key);
}

bool CfgClass::DeleteKey(const std::string &key)
{
    return DeleteKey(key.c_str());
}

bool CfgClass::DeleteKey(unsigned long index)
{
    return DeleteKey(GetKeyName(index));
}

unsigned long CfgClass::GetKeyCount(const std::string &section)
{
    return GetKeyCount(section.c_str());
}

unsigned long CfgClass::GetKeyCount()
{
    return GetKeyCount(m_selectedSection);
}

std::string CfgClass::GetKeyName(const std::string &section, unsigned long index)
{
    return GetKeyName(section.c_str(), index);
}

std::string CfgClass::GetKeyName(unsigned long index)
{
    return GetKeyName(m_selectedSection, index);
}

// What follows the address of a value in each family; `Text` is how texts are passed there.
#define TEXT_DEFAULT(Text) Text def
#define LONG_DEFAULT(Text) long def
#define BOOL_DEFAULT(Text) bool def
#define DOUBLE_DEFAULT(Text) double def
#define TIME_DEFAULT(Text) Text format, long def
#define TEXT_VALUE(Text) Text value
#define LONG_VALUE(Text) long value
#define ULONG_VALUE(Text) unsigned long value
#define BOOL_VALUE(Text) bool value
#define TIME_VALUE(Text) Text format, long value
#define DOUBLE_VALUE(Text) double value, unsigned int width, unsigned int precision

// The shapes that follow from the first, which makes seven. The variable arguments are what is
// passed on behind the address.
#define SEVEN_SHAPES(Type, Operation, Tail, ...) \
    Type CfgClass::Operation(const std::string &section, const std::string &key, \
                             Tail(const std::string &)) \
    { \
        return Operation(section.c_str(), key.c_str(), __VA_ARGS__); \
    } \
    Type CfgClass::Operation(const char *key, Tail(const char *)) \
    { \
        return Operation(m_selectedSection.c_str(), key, __VA_ARGS__); \
    } \
    Type CfgClass::Operation(const std::string &key, Tail(const std::string &)) \
    { \
        return Operation(key.c_str(), __VA_ARGS__); \
    } \
    Type CfgClass::Operation(const char *section, unsigned long index, Tail(const char *)) \
    { \
        return Operation(section, GetKeyName(section, index).c_str(), __VA_ARGS__); \
    } \
    Type CfgClass::Operation(const std::string &section, unsigned long index, \
                             Tail(const std::string &)) \
    { \
        return Operation(section.c_str(), index, __VA_ARGS__); \
    } \
    Type CfgClass::Operation(unsigned long index, Tail(const char *)) \
    { \
        return Operation(m_selectedSection.c_str(), index, __VA_ARGS__); \
    }

#define EIGHTH_SHAPE(Type, Operation, Tail, ...) \
    Type CfgClass::Operation(unsigned long index, Tail(const std::string &)) \
    { \
        return Operation(index, __VA_ARGS__); \
    }

SEVEN_SHAPES(std::string, ReadStr, TEXT_DEFAULT, chars(def))
EIGHTH_SHAPE(std::string, ReadStr, TEXT_DEFAULT, chars(def))
SEVEN_SHAPES(long, ReadInt, LONG_DEFAULT, def)
SEVEN_SHAPES(bool, ReadBool, BOOL_DEFAULT, def)
SEVEN_SHAPES(long, ReadDateTime, TIME_DEFAULT, chars(format), def)
SEVEN_SHAPES(double, ReadFloat, DOUBLE_DEFAULT, def)

SEVEN_SHAPES(bool, WriteStr, TEXT_VALUE, chars(value))
EIGHTH_SHAPE(bool, WriteStr, TEXT_VALUE, chars(value))
SEVEN_SHAPES(bool, WriteInt, LONG_VALUE, value)
SEVEN_SHAPES(bool, WriteUInt, ULONG_VALUE, value)
SEVEN_SHAPES(bool, WriteBool, BOOL_VALUE, value)
SEVEN_SHAPES(bool, WriteDateTime, TIME_VALUE, chars(format), value)
SEVEN_SHAPES(bool, WriteFloat, DOUBLE_VALUE, value, width, precision)

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
