#include "model/devicestatus.h"
#include "support/jsontext.h"
#include "tools/pelcloudctl/commands.h"
#include "tools/pelcloudctl/installation.h"
#include "tools/pelcloudctl/problem.h"
#include "tools/pelcloudctl/suite.h"
#include "tools/pelcloudctl/terminal.h"

#include <cstddef>
#include <map>
#include <memory>

#include <QJsonArray>
#include <QJsonObject>

namespace {

using Terminal::Colour;

/** A variable: its place in the suite's record, its key below "vars", and its physical unit. */
struct VariableField
{
    std::size_t offset;
    std::size_t size;
    const char *key;
    const char *unit;
};

#define FIELD(Name, Unit) \
    { \
        offsetof(nb_variaveis, Name), sizeof(nb_variaveis::Name), #Name, Unit \
    }
constexpr VariableField VARIABLES[] = {
    FIELD(family, ""),           FIELD(model, ""),          FIELD(vInput, "V"),
    FIELD(vOutput, "V"),         FIELD(iOutput, "A"),       FIELD(pOutput, "W"),
    FIELD(fOutput, "Hz"),        FIELD(vBattery, "V"),      FIELD(temperature, "°C"),
    FIELD(cBattery, "%"),        FIELD(version, ""),        FIELD(icBattery, ""),
    FIELD(shutdownTimer, ""),    FIELD(powerOnTimer, ""),   FIELD(powerOffTimer, ""),
    FIELD(nominalVBattery, "V"), FIELD(nominalVInput, "V"), FIELD(nominalPOutput, "W"),
    FIELD(nominalVOutput, "V"),  FIELD(name, ""),           FIELD(sampVInput, ""),
    FIELD(sampVOutput, ""),      FIELD(sampIOutput, ""),
};
#undef FIELD

/** What the translator derives from family and model; no bytes in the record. */
constexpr const char *DERIVED[] = { "caps.hasNominalFOutput", "caps.hasSetDischargeBattery",
                                    "caps.hasChangeAutonomy", "vars.nominalFOutput" };

using Paths = std::map<std::string, QJsonValue>;

void flatten(const QJsonObject &object, const std::string &prefix, Paths &paths)
{
    for (auto field = object.begin(); field != object.end(); ++field) {
        const std::string path = prefix + field.key().toStdString();
        if (field.value().isObject())
            flatten(field.value().toObject(), path + ".", paths);
        else
            paths[path] = field.value();
    }
}

Paths pathsOf(RecordBuffers &buffers)
{
    DeviceStatus device;
    buffers.translateState(device);
    Paths paths;
    flatten(device.toJson(), "", paths);
    return paths;
}

/** The value as in the request's body; an array is shortened. */
std::string wireText(const QJsonValue &value)
{
    if (value.isArray()) {
        const QJsonArray array = value.toArray();
        std::string text = std::to_string(array.size()) + " numbers: ";
        constexpr int SHOWN = 4;
        for (int i = 0; i < array.size() && i < SHOWN; ++i)
            text.append(wireText(array[i])).append(", ");
        return text + "...";
    }
    // The text of {"": value} without what surrounds the value.
    const QByteArray text = ToJsonText({ { QString(), value } });
    const qsizetype begin = text.indexOf(':') + 2;
    return text.mid(begin, text.lastIndexOf('}') - 1 - begin).toStdString();
}

std::string hex(const unsigned char *bytes, std::size_t size)
{
    constexpr std::size_t SHOWN = 8;
    std::string text;
    for (std::size_t i = 0; i < size && i < SHOWN; ++i) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x ", static_cast<unsigned int>(bytes[i]));
        text += digits;
    }
    if (size > SHOWN)
        return text + "...";
    text.pop_back();
    return text;
}

class Explanation
{
public:
    explicit Explanation(RecordBuffers &buffers)
        : m_buffers(buffers)
        , m_paths(pathsOf(buffers))
        , m_rows{
            { { "RECORD" }, { "AT" }, { "BYTES" }, { "VALUE" }, { "KEY" }, { "ON THE WIRE" } }
        }
    {}

    /** The bits of a record of flags; found by translating a record with one bit set at a time. */
    template <class Record>
    void addFlags(const char *name, RecordBuffer<Record> RecordBuffers::*record)
    {
        auto probe = std::make_unique<RecordBuffers>();
        const Paths before = pathsOf(*probe);
        for (std::size_t byte = 0; byte < sizeof(Record); ++byte) {
            for (unsigned int bit = 0; bit < 8; ++bit) {
                unsigned char *const bytes = ((*probe).*record).get()->bytes;
                bytes[byte] = static_cast<unsigned char>(1U << bit);
                for (const auto &[path, value] : pathsOf(*probe)) {
                    if (before.at(path) != value)
                        addFlag(name, (m_buffers.*record).get()->bytes, byte, bit, path);
                }
                bytes[byte] = 0;
            }
        }
    }

    void addVariables()
    {
        const auto *const record =
                reinterpret_cast<const unsigned char *>(m_buffers.variables.get());
        for (const VariableField &field : VARIABLES) {
            const std::string path = std::string("vars.") + field.key;
            add("variables", std::to_string(field.offset), record + field.offset, field.size, path,
                field.unit);
        }
    }

    void addRest()
    {
        addScalar("cause", m_buffers.cause, "regressiveCounter.cause");
        addScalar("cause", m_buffers.cause, "regressiveCounter.active");
        addScalar("counter", m_buffers.counter, "regressiveCounter.value");
        addScalar("full discharge", m_buffers.fullDischarge, "fullDischargeRequired");
        for (const char *const path : DERIVED)
            add("family, model", "", nullptr, 0, path, path == DERIVED[3] ? "Hz" : "");
    }

    [[nodiscard]] std::string text() const { return Terminal::table(m_rows); }

private:
    void addFlag(const char *name, const unsigned char *bytes, std::size_t byte, unsigned int bit,
                 const std::string &path)
    {
        add(name, std::to_string(byte) + "." + std::to_string(bit), bytes + byte, 1, path, "");
    }

    template <class Type>
    void addScalar(const char *name, RecordBuffer<Type> &buffer, const char *path)
    {
        add(name, "0", reinterpret_cast<const unsigned char *>(buffer.get()), sizeof(Type), path,
            "");
    }

    void add(const char *record, const std::string &at, const unsigned char *bytes,
             std::size_t size, const std::string &path, const std::string &unit)
    {
        const auto found = m_paths.find(path);
        const bool isSent = found != m_paths.end(); // an empty array of samples is not sent
        const QJsonValue value = isSent ? found->second : QJsonValue();
        std::string decoded = value.isString()   ? Terminal::printable(value.toString())
                              : value.isDouble() ? wireText(value)
                                                 : "";
        if (value.isDouble() && !unit.empty())
            decoded.append(" ").append(unit);
        m_rows.push_back({ { record, Colour::Dim },
                           { at },
                           { bytes == nullptr ? "" : hex(bytes, size) },
                           { decoded, Colour::Bold },
                           { path },
                           { isSent ? Terminal::printable(QString::fromStdString(wireText(value)))
                                    : "not sent" } });
    }

    RecordBuffers &m_buffers;
    Paths m_paths;
    std::vector<Terminal::Row> m_rows;
};

int run(const Installation &installation, unsigned long unit)
{
    Suite suite(installation);
    const unsigned long count = suite.count();
    if (unit >= count)
        throw Problem("unknown unit " + std::to_string(unit) + "; there "
                              + (count == 1 ? "is " : "are ") + std::to_string(count),
                      "Units are numbered from 0; 'pelcloudctl status' lists them.");
    DeviceStatus device;
    if (!suite.readState(unit, device))
        throw Problem("the suite gives no state for unit " + std::to_string(unit),
                      "Check that the suite is connected to it.");
    Explanation explanation(suite.buffers());
    explanation.addVariables();
    explanation.addFlags("capabilities", &RecordBuffers::capabilities);
    explanation.addFlags("state", &RecordBuffers::stateFlags);
    explanation.addFlags("failures", &RecordBuffers::failureFlags);
    explanation.addRest();
    Terminal::print(explanation.text());
    return 0;
}

} // namespace

void addExplain(Program &program)
{
    // As text: CLI11 reads 010 as an octal number, but it is the unit that reports call 010.
    const auto unit = std::make_shared<std::string>("0");
    CLI::App *const command =
            program.add("explain", "Show, field by field, how a UPS's record becomes a report",
                        "  pelcloudctl explain 1\n"
                        "  pelcloudctl explain | grep Battery",
                        [&program, unit] {
                            return run(findInstallation(program.directory()), std::stoul(*unit));
                        });
    command->add_option("UNIT", *unit, "Number of the UPS, from 0 (default: 0)")
            ->check(checkWholeNumber)
            ->type_name("");
}
