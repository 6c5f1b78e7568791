// Shows what becomes of the suite's records: fills those of one UPS on battery, as the client
// library would, and prints the two bodies that the cloud receives.

#include "model/computer.h"
#include "model/devicestatus.h"
#include "model/pel6trans.h"
#include "support/jsontext.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string_view>

#include <QJsonObject>

namespace {

constexpr int SAMPLES = 16;

void print(std::string_view title, const QJsonObject &object)
{
    const QByteArray text = ToJsonText(object);
    std::printf("%.*s\n%s\n", static_cast<int>(title.size()), title.data(), text.constData());
}

/** One period of a sine around the middle of the byte range. */
nb_samples sine(double amplitude)
{
    nb_samples wave{};
    wave.count = SAMPLES;
    for (int i = 0; i < SAMPLES; ++i) {
        const double angle = 2 * std::numbers::pi * i / SAMPLES;
        wave.samples[i] = static_cast<std::uint8_t>(std::lround(128 + amplitude * std::sin(angle)));
    }
    return wave;
}

template <std::size_t Size>
void copyText(char (&field)[Size], std::string_view text)
{
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

QJsonObject computerBody()
{
    pelorin_version_info info{};
    copyText(info.version, "6.3.0");
    copyText(info.os, "Linux 6.1.0 x86_64");
    Computer computer;
    computer.setId(QStringLiteral("pc1"));
    Pel6Translator::translate(computer, &info);

    QJsonObject body = computer.toJson();
    body.remove(QLatin1String("name")); // as the request leaves it out
    return body;
}

DeviceStatus sampleDevice()
{
    const nb_capabilities caps{ { 0xff, 0xff, 0x87, 0x03 } };
    const nb_falha_flags failures{};
    const nb_estado_flags state{ { 0x03, 0x08, 0x02,
                                   0x00 } }; // connected, on battery, no input, calibrated

    nb_variaveis vars{};
    vars.family = 10;
    vars.model = 2;
    vars.vInput = 0.0F;
    vars.vOutput = 229.6F;
    vars.iOutput = 2.17F;
    vars.pOutput = 41.5F;
    vars.fOutput = 60.02F;
    vars.vBattery = 25.3F;
    vars.cBattery = 87.0F;
    vars.temperature = 31.25F;
    vars.version = 1.5F;
    vars.icBattery = 7;
    vars.shutdownTimer = 1000000;
    vars.nominalVInput = 230.0F;
    vars.nominalVOutput = 230.0F;
    vars.nominalPOutput = 1400.0F;
    vars.nominalVBattery = 24.0F;
    copyText(vars.name, "Server room");
    vars.sampVOutput = sine(110);
    vars.sampIOutput = sine(35);

    const long cause = -1;
    const unsigned long counter = 0;
    const char fullDischarge = 0;
    DeviceStatus device;
    Pel6Translator::translate(device, &caps, &failures, &state, &vars, &cause, &counter,
                              &fullDischarge);
    return device;
}

} // namespace

int main()
{
    print("The computer:", computerBody());
    print("The UPS:", sampleDevice().toJson());
    return 0;
}
