#ifndef PELCLOUD_MODEL_CAPABILITIES_H
#define PELCLOUD_MODEL_CAPABILITIES_H

#include "model/fields.h"

// One row per field; keys as on the wire.
#define PELCLOUD_CAPABILITIES_FIELDS(FIELD) \
    FIELD(int, HasFamily, "hasFamily") \
    FIELD(int, HasModel, "hasModel") \
    FIELD(int, HasVInput, "hasVInput") \
    FIELD(int, HasVOutput, "hasVOutput") \
    FIELD(int, HasIOutput, "hasIOutput") \
    FIELD(int, HasPOutput, "hasPOutput") \
    FIELD(int, HasFOutput, "hasFOutput") \
    FIELD(int, HasVBattery, "hasVBattery") \
    FIELD(int, HasCBattery, "hasCBattery") \
    FIELD(int, HasTemperature, "hasTemperature") \
    FIELD(int, HasVersion, "hasVersion") \
    FIELD(int, HasIcBattery, "hasICBattery") \
    FIELD(int, HasSetIcBattery, "hasSetICBattery") \
    FIELD(int, HasShutdownTimer, "hasShutdownTimer") \
    FIELD(int, HasPowerOnTimer, "hasPowerOnTimer") \
    FIELD(int, HasPowerOffTimer, "hasPowerOffTimer") \
    FIELD(int, HasManualShutdown, "hasManualShutdown") \
    FIELD(int, HasProgPowerOn, "hasProgPowerOn") \
    FIELD(int, HasProgPowerOff, "hasProgPowerOff") \
    FIELD(int, HasSampVInput, "hasSampVInput") \
    FIELD(int, HasSampVOutput, "hasSampVOutput") \
    FIELD(int, HasSampIOutput, "hasSampIOutput") \
    FIELD(int, HasNominalVInput, "hasNominalVInput") \
    FIELD(int, HasNominalVOutput, "hasNominalVOutput") \
    FIELD(int, HasNominalPOutput, "hasNominalPOutput") \
    FIELD(int, HasNominalFOutput, "hasNominalFOutput") \
    FIELD(int, HasNominalVBattery, "hasNominalVBattery") \
    FIELD(int, HasSetDischargeBattery, "hasSetDischargeBattery") \
    FIELD(int, HasChangeAutonomy, "hasChangeAutonomy")

/**
 * Which measurements and functions a UPS offers. Flags hold 0 or 1. The JSON always has all of
 * them, as numbers. "IC" in two keys is "Ic" in their accessors.
 */
class Capabilities
{
public:
    Capabilities() = default;
    Capabilities(const Capabilities &) = default;
    Capabilities &operator=(const Capabilities &) = default;
    virtual ~Capabilities();

    PELCLOUD_CAPABILITIES_FIELDS(PELCLOUD_FIELD_ACCESSORS)

    /** Resets to the values of a new record. */
    void clear();
    /** Sets every flag to 1. */
    void all();
    [[nodiscard]] QJsonObject toJson() const;

private:
    struct Table;

    PELCLOUD_CAPABILITIES_FIELDS(PELCLOUD_FIELD_MEMBER)
};

#endif
