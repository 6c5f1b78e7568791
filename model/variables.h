#ifndef PELCLOUD_MODEL_VARIABLES_H
#define PELCLOUD_MODEL_VARIABLES_H

#include "model/fields.h"

#include <QString>
#include <QVector>

// One row per field; keys as on the wire.
#define PELCLOUD_VARIABLES_FIELDS(FIELD) \
    FIELD(int, Family, "family", -1) \
    FIELD(int, Model, "model", -1) \
    FIELD(QString, Name, "name") \
    FIELD(QString, Version, "version") \
    FIELD(float, VInput, "vInput") \
    FIELD(float, VOutput, "vOutput") \
    FIELD(float, IOutput, "iOutput") \
    FIELD(float, POutput, "pOutput") \
    FIELD(float, FOutput, "fOutput") \
    FIELD(float, VBattery, "vBattery") \
    FIELD(float, CBattery, "cBattery") \
    FIELD(float, Temperature, "temperature") \
    FIELD(int, IcBattery, "icBattery") \
    FIELD(int, ShutdownTimer, "shutdownTimer") \
    FIELD(int, PowerOnTimer, "powerOnTimer") \
    FIELD(int, PowerOffTimer, "powerOffTimer") \
    FIELD(QVector<float>, SampVInput, "sampVInput") \
    FIELD(QVector<float>, SampVOutput, "sampVOutput") \
    FIELD(QVector<float>, SampIOutput, "sampIOutput") \
    FIELD(float, NominalVInput, "nominalVInput") \
    FIELD(float, NominalVOutput, "nominalVOutput") \
    FIELD(float, NominalPOutput, "nominalPOutput") \
    FIELD(float, NominalFOutput, "nominalFOutput") \
    FIELD(float, NominalVBattery, "nominalVBattery")

/**
 * Measurements and rated values of a UPS, in the suite's units, unconverted.
 *
 * V, I, P, F and C stand for voltage, current, power, frequency and charge, samp for the samples of
 * a waveform. -1 marks an unknown family or model. The JSON leaves out empty sample sequences. It
 * always has every other key, whether or not the UPS has the capability: the receiver matches
 * values and capabilities by name.
 */
class Variables
{
public:
    Variables() = default;
    Variables(const Variables &) = default;
    Variables &operator=(const Variables &) = default;
    virtual ~Variables();

    PELCLOUD_VARIABLES_FIELDS(PELCLOUD_FIELD_ACCESSORS)

    /** Resets to the values of a new record. */
    void clear();
    [[nodiscard]] QJsonObject toJson() const;

private:
    struct Table;

    PELCLOUD_VARIABLES_FIELDS(PELCLOUD_FIELD_MEMBER)
};

#endif
