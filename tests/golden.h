#ifndef PELCLOUD_TESTS_GOLDEN_H
#define PELCLOUD_TESTS_GOLDEN_H

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

/** The text of a file of tests/golden, typed by hand; empty when there is no such file. */
inline std::string golden(const std::string &name)
{
    std::ifstream file(std::string(PELCLOUD_GOLDEN_DIR "/") + name, std::ios::binary);
    return { std::istreambuf_iterator<char>(file), {} };
}

/** The rows of such a file that holds a table; there must be some. */
inline QJsonArray goldenRows(const std::string &name)
{
    QJsonArray rows = QJsonDocument::fromJson(golden(name).c_str()).array();
    EXPECT_FALSE(rows.isEmpty()) << name;
    return rows;
}

#endif
