#include "devkit/cloud/reports.h"
#include "model/unitstate.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace localcloud {

namespace {

qint64 number(std::uint64_t value)
{
    return static_cast<qint64>(value);
}

/** `value` where the report has the capability, else null. */
QJsonValue measured(const QJsonObject &report, const char *capability, const char *variable)
{
    const bool isThere = report[QStringLiteral("caps")][QLatin1String(capability)].toInt() == 1;
    const QJsonValue value = report[QStringLiteral("vars")][QLatin1String(variable)];
    return isThere && value.isDouble() ? value : QJsonValue::Null;
}

QJsonArray historyRow(const QJsonObject &report, double time)
{
    const double load = loadOf(report);
    return { time, measured(report, "hasCBattery", "cBattery"),
             load >= 0 ? QJsonValue(load) : QJsonValue::Null,
             measured(report, "hasVInput", "vInput") };
}

template <class Item>
void append(std::deque<Item> &items, Item item, std::size_t limit)
{
    items.push_back(std::move(item));
    if (items.size() > limit)
        items.pop_front();
}

} // namespace

std::uint64_t missedReports(double seconds, double secondsBetween)
{
    const double periods = std::floor(seconds / secondsBetween + 0.5);
    return periods > 1 ? static_cast<std::uint64_t>(periods) - 1 : 0;
}

Reports::Reports(const ReportLimits &limits)
    : m_limits(limits)
{}

bool Reports::add(const std::string &computer, const std::string &device, const std::string &bytes,
                  const QJsonObject &object, double now)
{
    Source *const source = room(computer, device);
    if (!source)
        return false;
    if (source->reports.empty())
        source->first = now;
    else
        source->missed +=
                missedReports(now - source->reports.back().time, m_limits.secondsBetweenReports);
    ++source->count;
    append(source->reports, { ++m_sequence, now, bytes, object }, m_limits.reportsPerSource);
    if (!device.empty())
        append(source->history, historyRow(object, now), m_limits.historyPerUnit);
    return true;
}

std::uint64_t Reports::sequence() const
{
    return m_sequence;
}

std::optional<std::string> Reports::latestBody(const std::string &computer,
                                               const std::string &device) const
{
    const Source *const source = find(computer, device);
    return source ? std::optional(source->reports.back().bytes) : std::nullopt;
}

QJsonArray Reports::computers(std::uint64_t since, double now) const
{
    QJsonArray list;
    for (const auto &[id, computer] : m_computers) {
        QJsonArray units;
        for (const auto &[device, source] : computer.units)
            units.append(unitJson(device, source, since, now));
        QJsonObject json = sourceJson(computer.own, since, now);
        json[QStringLiteral("id")] = QString::fromUtf8(id);
        json[QStringLiteral("units")] = units;
        list.append(json);
    }
    return list;
}

QJsonArray Reports::reportsAfter(std::uint64_t since) const
{
    std::map<std::uint64_t, QJsonObject> found;
    const auto collect = [&](const std::string &computer, const std::string &device,
                             const Source &source) {
        for (const Report &report : source.reports) {
            if (report.number > since)
                found[report.number] = { { QStringLiteral("number"), number(report.number) },
                                         { QStringLiteral("time"), report.time },
                                         { QStringLiteral("computer"),
                                           QString::fromUtf8(computer) },
                                         { QStringLiteral("device"), QString::fromUtf8(device) },
                                         { QStringLiteral("body"), report.object } };
        }
    };
    for (const auto &[id, computer] : m_computers) {
        collect(id, {}, computer.own);
        for (const auto &[device, source] : computer.units)
            collect(id, device, source);
    }
    QJsonArray list;
    for (const auto &entry : found)
        list.append(entry.second);
    return list;
}

QJsonArray Reports::history(const std::string &computer, const std::string &device) const
{
    QJsonArray rows;
    if (const Source *const source = find(computer, device)) {
        for (const QJsonArray &row : source->history)
            rows.append(row);
    }
    return rows;
}

Reports::Source *Reports::room(const std::string &computer, const std::string &device)
{
    if (!m_computers.contains(computer) && m_computers.size() >= m_limits.computers)
        return nullptr;
    Computer &owner = m_computers[computer];
    if (device.empty())
        return &owner.own;
    if (!owner.units.contains(device) && owner.units.size() >= m_limits.unitsPerComputer)
        return nullptr;
    return &owner.units[device];
}

/** Null unless the source has reported. */
const Reports::Source *Reports::find(const std::string &computer, const std::string &device) const
{
    const auto owner = m_computers.find(computer);
    if (owner == m_computers.end())
        return nullptr;
    if (device.empty())
        return owner->second.own.reports.empty() ? nullptr : &owner->second.own;
    const auto unit = owner->second.units.find(device);
    return unit == owner->second.units.end() ? nullptr : &unit->second;
}

/** What computers and UPSs have in common; a source that never reported has a count of 0 and no times. */
QJsonObject Reports::sourceJson(const Source &source, std::uint64_t since, double now) const
{
    QJsonObject json{ { QStringLiteral("reports"), number(source.count) } };
    if (source.reports.empty())
        return json;
    const Report &latest = source.reports.back();
    const double age = std::max(0.0, now - latest.time);
    const std::uint64_t overdue = missedReports(age, m_limits.secondsBetweenReports);
    json[QStringLiteral("number")] = number(latest.number);
    json[QStringLiteral("first")] = source.first;
    json[QStringLiteral("last")] = latest.time;
    json[QStringLiteral("age")] = age;
    json[QStringLiteral("overdue")] = number(overdue);
    json[QStringLiteral("missed")] = number(source.missed + overdue);
    if (latest.number > since)
        json[QStringLiteral("body")] = latest.object;
    return json;
}

QJsonObject Reports::unitJson(const std::string &device, const Source &source, std::uint64_t since,
                              double now) const
{
    QJsonObject json = sourceJson(source, since, now);
    const QJsonObject &report = source.reports.back().object;
    const UnitState state = unitStateOf(report);
    QJsonArray notes;
    for (const std::string_view note : state.notes)
        notes.append(QString::fromUtf8(note));
    const double load = loadOf(report);
    json[QStringLiteral("device")] = QString::fromUtf8(device);
    json[QStringLiteral("name")] = report[QStringLiteral("vars")][QStringLiteral("name")];
    json[QStringLiteral("state")] = QString::fromUtf8(state.key);
    json[QStringLiteral("words")] = QString::fromUtf8(state.words);
    json[QStringLiteral("level")] = QString::fromUtf8(levelName(state.level));
    json[QStringLiteral("notes")] = notes;
    json[QStringLiteral("load")] = load >= 0 ? QJsonValue(load) : QJsonValue::Null;
    return json;
}

} // namespace localcloud
