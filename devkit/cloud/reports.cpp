#include "devkit/cloud/reports.h"
#include "model/unitstate.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace localcloud {

namespace {

using namespace Qt::StringLiterals;

qint64 number(std::uint64_t value)
{
    return static_cast<qint64>(value);
}

/** The value if the report has the capability, else null. */
QJsonValue measured(const QJsonObject &report, const char *capability, const char *variable)
{
    const bool isThere = report[u"caps"_s][QLatin1String(capability)].toInt() == 1;
    const QJsonValue value = report[u"vars"_s][QLatin1String(variable)];
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
        json[u"id"_s] = QString::fromUtf8(id);
        json[u"units"_s] = units;
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
                found[report.number] = { { u"number"_s, number(report.number) },
                                         { u"time"_s, report.time },
                                         { u"computer"_s, QString::fromUtf8(computer) },
                                         { u"device"_s, QString::fromUtf8(device) },
                                         { u"body"_s, report.object } };
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

/** Null if the source has not reported. */
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

/** The members that computers and UPSs share; a source without reports has a count of 0 and no times. */
QJsonObject Reports::sourceJson(const Source &source, std::uint64_t since, double now) const
{
    QJsonObject json{ { u"reports"_s, number(source.count) } };
    if (source.reports.empty())
        return json;
    const Report &latest = source.reports.back();
    const double age = std::max(0.0, now - latest.time);
    const std::uint64_t overdue = missedReports(age, m_limits.secondsBetweenReports);
    json[u"number"_s] = number(latest.number);
    json[u"first"_s] = source.first;
    json[u"last"_s] = latest.time;
    json[u"age"_s] = age;
    json[u"overdue"_s] = number(overdue);
    json[u"missed"_s] = number(source.missed + overdue);
    if (latest.number > since)
        json[u"body"_s] = latest.object;
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
    json[u"device"_s] = QString::fromUtf8(device);
    json[u"name"_s] = report[u"vars"_s][u"name"_s];
    json[u"state"_s] = QString::fromUtf8(state.key);
    json[u"words"_s] = QString::fromUtf8(state.words);
    json[u"level"_s] = QString::fromUtf8(levelName(state.level));
    json[u"notes"_s] = notes;
    json[u"load"_s] = load >= 0 ? QJsonValue(load) : QJsonValue::Null;
    return json;
}

} // namespace localcloud
