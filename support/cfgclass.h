#ifndef PELCLOUD_SUPPORT_CFGCLASS_H
#define PELCLOUD_SUPPORT_CFGCLASS_H

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

/**
 * Reads, edits and writes INI files: sections in brackets, key=value lines, comments that begin
 * with ";", "#" or "'". The lines are kept as they were read, so that a rewrite preserves comments
 * and layout: an edit changes only its own lines.
 *
 * Names of sections and keys are case-insensitive and held in capitals; values keep their case. The
 * first occurrence of a key in a section counts; a section whose header occurs twice is one
 * section. Keys before any header are in the section with the empty name.
 *
 * Every operation sets an error code; none throws because of it. A load takes the good lines of a
 * file with bad ones and counts as success. Every write rewrites the file at once, unless
 * SetCached(true) defers that; after a failed write the change stays in memory, and the next write
 * tries again. The destructor saves like Close(). A value with a line feed is refused with error 1,
 * a name that a load would read differently with error 3. A value with a bracket is written, but no
 * later load accepts its line.
 *
 * An object may be used by one thread at a time. It keeps no file open between two operations.
 *
 * The order of the virtual functions is a contract with users of the compiled class.
 */
class CfgClass
{
public:
    enum ErrorCode : std::int32_t {
        SUCCESS = 0,
        BAD_ARGUMENT = 1, // or nothing found under that name or number
        FILE_ERROR = 2,   // could not be opened, read or written
        NOT_INSERTED = 3, // a section or key that no load could read back
        NOT_SAVED_AS = 4,
        NO_FILE_OPEN = 5,
        FILE_READ_ONLY = 6,
        SYNTAX_ERROR = 7,
    };

    CfgClass();
    CfgClass(const CfgClass &) = delete;
    CfgClass &operator=(const CfgClass &) = delete;

protected:
    using Lines = std::list<std::string>;
    using LinePos = Lines::iterator; // stable; the end stands for no line

    struct KeyRec
    {
        std::string value; // trimmed
        LinePos line;
        std::vector<LinePos> repeated; // later lines with this key, which do not count
    };
    using Keys = std::map<std::string, KeyRec>;
    using KeyPos = Keys::iterator;

    struct SectRec
    {
        Keys keys;
        std::vector<LinePos> headers;
        std::vector<LinePos> keyLines; // in file order: a new key goes after the last
    };
    using Sections = std::map<std::string, SectRec>;
    using SectionPos = Sections::iterator;

    /** Whether new names are written in capitals rather than in the caller's spelling. */
    virtual bool GetUpperCaseWriteCache() const;

    /** Loads the file, without its lines if it will not be written. Errors 2 and 7. */
    virtual bool LoadFile(bool noLines);
    /** Writes the lines if they changed. True also without a file, or with a read-only one. */
    virtual bool SaveFile();
    virtual void ClearReadCache();  // sections and keys
    virtual void ClearWriteCache(); // lines
    virtual bool ParseLine(const std::string &raw, bool noLines);

    /** Adds a section, which becomes the current one; `newLine` adds its header to the lines. */
    virtual bool InsertSection(const std::string &name, LinePos line, bool newLine);
    /**
     * Adds a key. `at` is where LocateKey() missed it, and then where it is. `newLine` adds its
     * line after the section's last key.
     */
    virtual bool InsertKey(const std::string &key, const std::string &value, SectionPos section,
                           KeyPos &at, LinePos line, bool newLine);
    virtual bool LocateSection(const std::string &name, SectionPos &section);
    /** When there is no such key, `at` is set to where it would be. */
    virtual bool LocateKey(SectionPos section, const std::string &key, KeyPos &at);

    // Set the error code and return whether it is 0.
    bool succeed();
    bool fail(ErrorCode code);

public:
    virtual ~CfgClass();

    // Files.

    /**
     * Closes the open file and loads this one, for reading and writing. A file that cannot be read
     * counts as one to be created: true, with error 2. With bad lines: true, with error 7.
     */
    virtual bool Open(const char *name);
    virtual bool Open(const std::string &name);
    /** The same for reading only; a file that cannot be read fails. */
    virtual bool OpenReadOnly(const char *name);
    virtual bool OpenReadOnly(const std::string &name);
    /** Saves pending changes and forgets the file in any case. False if saving failed. */
    virtual bool Close();
    /** Writes all lines under another name and keeps that name; error 4 and the old name if not. */
    virtual bool SaveAs(const char *name);
    virtual bool SaveAs(const std::string &name);
    [[nodiscard]] virtual std::string GetFileName() const;
    /** Changes the name under which the next save writes, and nothing else. */
    virtual bool Rename(const char *name);
    /** OpenReadOnly() or Open(). */
    virtual bool SetFileName(const char *name, bool readOnly);
    virtual bool FlushCache();

    // Sections. Numbers count in the order of the names, from 0.

    /**
     * Selects the section for the operations that take none. Also selects a section that does not
     * exist, since a write may create it; returns false with error 1 then.
     */
    virtual bool SetSection(const char *section);
    virtual bool SetSection(const std::string &section);
    [[nodiscard]] virtual std::string GetSection() const;
    virtual bool SectionExists(const char *section);
    virtual bool SectionExists(const std::string &section);
    virtual bool SectionExists();
    /** Removes every line from a header of the section to the next header of any. */
    virtual bool EraseSection(const char *section);
    virtual bool EraseSection(const std::string &section);
    virtual bool EraseSection();
    virtual unsigned long GetSectionCount();
    virtual std::string GetSectionName(unsigned long index);

    // Keys. Numbers count in the order of the names, from 0. As a literal that is 0UL: a bare 0
    // would also be a null name.

    virtual bool KeyExists(const char *section, const char *key);
    virtual bool KeyExists(const std::string &section, const std::string &key);
    virtual bool KeyExists(const char *key);
    virtual bool KeyExists(const std::string &key);
    /** Removes every line of the section with this key. */
    virtual bool DeleteKey(const char *section, const char *key);
    virtual bool DeleteKey(const std::string &section, const std::string &key);
    virtual bool DeleteKey(const char *key);
    virtual bool DeleteKey(const std::string &key);
    virtual bool DeleteKey(unsigned long index);
    virtual unsigned long GetKeyCount(const char *section);
    virtual unsigned long GetKeyCount(const std::string &section);
    virtual unsigned long GetKeyCount();
    virtual std::string GetKeyName(const char *section, unsigned long index);
    virtual std::string GetKeyName(const std::string &section, unsigned long index);
    virtual std::string GetKeyName(unsigned long index);

    // Typed reads, by (section, key), (key), (section, number) or (number): the stored value, or
    // `def` when there is none or it does not fit the type. A bool is a number, 0 or other.
    // Formats of times are those of support/datetext.h.

    virtual std::string ReadStr(const char *section, const char *key, const char *def);
    virtual std::string ReadStr(const std::string &section, const std::string &key,
                                const std::string &def);
    virtual std::string ReadStr(const char *key, const char *def);
    virtual std::string ReadStr(const std::string &key, const std::string &def);
    virtual std::string ReadStr(const char *section, unsigned long index, const char *def);
    virtual std::string ReadStr(const std::string &section, unsigned long index,
                                const std::string &def);
    virtual std::string ReadStr(unsigned long index, const char *def);
    virtual std::string ReadStr(unsigned long index, const std::string &def);

    virtual long ReadInt(const char *section, const char *key, long def);
    virtual long ReadInt(const std::string &section, const std::string &key, long def);
    virtual long ReadInt(const char *key, long def);
    virtual long ReadInt(const std::string &key, long def);
    virtual long ReadInt(const char *section, unsigned long index, long def);
    virtual long ReadInt(const std::string &section, unsigned long index, long def);
    virtual long ReadInt(unsigned long index, long def);

    virtual bool ReadBool(const char *section, const char *key, bool def);
    virtual bool ReadBool(const std::string &section, const std::string &key, bool def);
    virtual bool ReadBool(const char *key, bool def);
    virtual bool ReadBool(const std::string &key, bool def);
    virtual bool ReadBool(const char *section, unsigned long index, bool def);
    virtual bool ReadBool(const std::string &section, unsigned long index, bool def);
    virtual bool ReadBool(unsigned long index, bool def);

    virtual long ReadDateTime(const char *section, const char *key, const char *format, long def);
    virtual long ReadDateTime(const std::string &section, const std::string &key,
                              const std::string &format, long def);
    virtual long ReadDateTime(const char *key, const char *format, long def);
    virtual long ReadDateTime(const std::string &key, const std::string &format, long def);
    virtual long ReadDateTime(const char *section, unsigned long index, const char *format,
                              long def);
    virtual long ReadDateTime(const std::string &section, unsigned long index,
                              const std::string &format, long def);
    virtual long ReadDateTime(unsigned long index, const char *format, long def);

    virtual double ReadFloat(const char *section, const char *key, double def);
    virtual double ReadFloat(const std::string &section, const std::string &key, double def);
    virtual double ReadFloat(const char *key, double def);
    virtual double ReadFloat(const std::string &key, double def);
    virtual double ReadFloat(const char *section, unsigned long index, double def);
    virtual double ReadFloat(const std::string &section, unsigned long index, double def);
    virtual double ReadFloat(unsigned long index, double def);

    // Typed writes, addressed likewise; missing sections and keys are created when given by name.

    virtual bool WriteStr(const char *section, const char *key, const char *value);
    virtual bool WriteStr(const std::string &section, const std::string &key,
                          const std::string &value);
    virtual bool WriteStr(const char *key, const char *value);
    virtual bool WriteStr(const std::string &key, const std::string &value);
    virtual bool WriteStr(const char *section, unsigned long index, const char *value);
    virtual bool WriteStr(const std::string &section, unsigned long index,
                          const std::string &value);
    virtual bool WriteStr(unsigned long index, const char *value);
    virtual bool WriteStr(unsigned long index, const std::string &value);

    virtual bool WriteInt(const char *section, const char *key, long value);
    virtual bool WriteInt(const std::string &section, const std::string &key, long value);
    virtual bool WriteInt(const char *key, long value);
    virtual bool WriteInt(const std::string &key, long value);
    virtual bool WriteInt(const char *section, unsigned long index, long value);
    virtual bool WriteInt(const std::string &section, unsigned long index, long value);
    virtual bool WriteInt(unsigned long index, long value);

    virtual bool WriteUInt(const char *section, const char *key, unsigned long value);
    virtual bool WriteUInt(const std::string &section, const std::string &key, unsigned long value);
    virtual bool WriteUInt(const char *key, unsigned long value);
    virtual bool WriteUInt(const std::string &key, unsigned long value);
    virtual bool WriteUInt(const char *section, unsigned long index, unsigned long value);
    virtual bool WriteUInt(const std::string &section, unsigned long index, unsigned long value);
    virtual bool WriteUInt(unsigned long index, unsigned long value);

    virtual bool WriteBool(const char *section, const char *key, bool value);
    virtual bool WriteBool(const std::string &section, const std::string &key, bool value);
    virtual bool WriteBool(const char *key, bool value);
    virtual bool WriteBool(const std::string &key, bool value);
    virtual bool WriteBool(const char *section, unsigned long index, bool value);
    virtual bool WriteBool(const std::string &section, unsigned long index, bool value);
    virtual bool WriteBool(unsigned long index, bool value);

    virtual bool WriteDateTime(const char *section, const char *key, const char *format,
                               long value);
    virtual bool WriteDateTime(const std::string &section, const std::string &key,
                               const std::string &format, long value);
    virtual bool WriteDateTime(const char *key, const char *format, long value);
    virtual bool WriteDateTime(const std::string &key, const std::string &format, long value);
    virtual bool WriteDateTime(const char *section, unsigned long index, const char *format,
                               long value);
    virtual bool WriteDateTime(const std::string &section, unsigned long index,
                               const std::string &format, long value);
    virtual bool WriteDateTime(unsigned long index, const char *format, long value);

    virtual bool WriteFloat(const char *section, const char *key, double value, unsigned int width,
                            unsigned int precision);
    virtual bool WriteFloat(const std::string &section, const std::string &key, double value,
                            unsigned int width, unsigned int precision);
    virtual bool WriteFloat(const char *key, double value, unsigned int width,
                            unsigned int precision);
    virtual bool WriteFloat(const std::string &key, double value, unsigned int width,
                            unsigned int precision);
    virtual bool WriteFloat(const char *section, unsigned long index, double value,
                            unsigned int width, unsigned int precision);
    virtual bool WriteFloat(const std::string &section, unsigned long index, double value,
                            unsigned int width, unsigned int precision);
    virtual bool WriteFloat(unsigned long index, double value, unsigned int width,
                            unsigned int precision);

    /** Whether writes are deferred to Flush() or Close(). Switching that off flushes. */
    virtual void SetCached(bool cached);
    virtual bool Flush();
    [[nodiscard]] virtual bool IsFail() const;
    [[nodiscard]] virtual std::int32_t GetErrorCode() const;
    /** The first bad line of the last load, counted from 1; 0 when there was none. */
    [[nodiscard]] virtual std::uint64_t GetErrorLine() const;

private:
    // What operations on the file's content require; set the error code.
    bool isOpen(bool argumentsGiven);
    bool isWritable(bool argumentsGiven);

    bool openAs(const char *name, bool readOnly);
    bool enterSection(const std::string &name, LinePos line);
    bool addKey(const std::string &key, const std::string &value, LinePos line);
    const std::string &writtenName(const std::string &name, const std::string &capitals) const;
    LinePos newKeyPosition(SectRec &section);
    static void rewriteKey(KeyRec &key, const std::string &value);
    void eraseLines(const KeyRec &key);
    void removeKey(SectRec &section, KeyPos key);
    void removeSection(SectionPos section);
    bool writeLines(const std::string &name) const;
    /** Ends an edit: writes the file unless writes are cached. */
    bool commit();

    Lines m_lines;
    Sections m_sections;
    std::string m_fileName; // empty: no file open
    bool m_readOnly = false;
    bool m_modified = false;
    SectionPos m_currentSection; // while parsing
    std::string m_selectedSection;
    bool m_cached = false;
    std::int32_t m_errorCode = SUCCESS;
    std::uint64_t m_errorLine = 0;
};

/** The same for the system-wide configuration file: new names keep the caller's spelling. */
class RegCfgClass : public CfgClass
{
public:
    RegCfgClass();
    ~RegCfgClass() override;

    using CfgClass::SaveAs;
    bool SaveAs(const char *name) override;

protected:
    bool GetUpperCaseWriteCache() const override;
    bool LoadFile(bool noLines) override;
    bool SaveFile() override;
};

#endif
