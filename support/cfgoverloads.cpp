#include "support/cfgclass.h"

#include "support/datetext.h"
#include "support/utils.h"

// The members that follow from others: values of other types than text, and the overloads. There,
// strings are passed on as their characters, the selected section stands for a missing one, and a
// number stands for the key with that number, or for no key, which is a bad argument.

namespace {

const char *chars(const char *text)
{
    return text;
}

const char *chars(const std::string &text)
{
    return text.c_str();
}

} // namespace

// Values by section and key.

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

// Overloads.

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

// The parameters after the address in each family; `Text` is the type of text parameters.
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

// The six shapes that follow from the first. The variable arguments are those after the address.
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
