#ifndef PELCLOUD_DEVKIT_CLOUD_REPORTS_H
#define PELCLOUD_DEVKIT_CLOUD_REPORTS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

#include <QJsonArray>
#include <QJsonObject>

namespace localcloud {

/** Bounds of the memory, and the interval of reports. */
struct ReportLimits
{
    std::size_t computers = 50;
    std::size_t unitsPerComputer = 1000;
    std::size_t reportsPerSource = 20;
    std::size_t historyPerUnit = 360;
    double secondsBetweenReports = 10;
};

/**
 * The number of missing reports in the `seconds` since the last one, if one is due every
 * `secondsBetween`. A report that is late by up to half a period is not missing.
 */
[[nodiscard]] std::uint64_t missedReports(double seconds, double secondsBetween);

/**
 * The received reports: for every computer and every UPS the last few, and a history of the values in
 * the charts. A source is a computer (an empty device) or one of its UPSs. Times are seconds since
 * 1970 and come from the caller. Reports are numbered from 1 in the order of arrival. Not safe for
 * concurrent use.
 */
class Reports
{
public:
    explicit Reports(const ReportLimits &limits = {});

    /**
     * Adds a report: its bytes, and the same as an object. False, without a change, if there is no room
     * for another computer or UPS.
     */
    bool add(const std::string &computer, const std::string &device, const std::string &bytes,
             const QJsonObject &object, double now);

    /** The number of the newest report. */
    [[nodiscard]] std::uint64_t sequence() const;

    /** The bytes of the latest report of a source, or nothing. */
    [[nodiscard]] std::optional<std::string> latestBody(const std::string &computer,
                                                        const std::string &device) const;

    /**
     * Every computer with its UPSs: names, states, counts, times, missed reports; bodies only of reports
     * after number `since`.
     */
    [[nodiscard]] QJsonArray computers(std::uint64_t since, double now) const;

    /** The reports after number `since`, in the order of arrival. */
    [[nodiscard]] QJsonArray reportsAfter(std::uint64_t since) const;

    /** Rows of time, battery charge, load and input voltage; null for an unknown value. */
    [[nodiscard]] QJsonArray history(const std::string &computer, const std::string &device) const;

private:
    struct Report
    {
        std::uint64_t number;
        double time;
        std::string bytes;
        QJsonObject object;
    };
    struct Source
    {
        std::deque<Report> reports;
        std::deque<QJsonArray> history;
        std::uint64_t count = 0;
        std::uint64_t missed = 0;
        double first = 0;
    };
    struct Computer
    {
        Source own;
        std::map<std::string, Source> units;
    };

    [[nodiscard]] Source *room(const std::string &computer, const std::string &device);
    [[nodiscard]] const Source *find(const std::string &computer, const std::string &device) const;
    [[nodiscard]] QJsonObject sourceJson(const Source &source, std::uint64_t since,
                                         double now) const;
    [[nodiscard]] QJsonObject unitJson(const std::string &device, const Source &source,
                                       std::uint64_t since, double now) const;

    ReportLimits m_limits;
    std::map<std::string, Computer> m_computers;
    std::uint64_t m_sequence = 0;
};

} // namespace localcloud

#endif
