#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_TERMINAL_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_TERMINAL_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

class QString;

/** Input from and output to a person. */
namespace Terminal {

enum class Colour { Plain, Bold, Dim, Green, Yellow, Red };

/** Whether `stream` is a terminal. */
[[nodiscard]] bool isTerminal(std::FILE *stream);

/** The text in a colour; as it is without a terminal, with NO_COLOR or where TERM is "dumb". */
[[nodiscard]] std::string painted(Colour colour, std::string_view text);

/** UTF-8 with each control character replaced by "?": records must not control the terminal. */
[[nodiscard]] std::string printable(const QString &text);
[[nodiscard]] std::string printable(std::string_view utf8);

/** Writes the text to standard output and flushes it; a Problem when that fails. */
void print(std::string_view text);

struct Cell
{
    std::string text;
    Colour colour = Colour::Plain;
    bool isNumber = false; // aligned to the right
};
using Row = std::vector<Cell>;

/** The rows in columns, two blanks apart; the first row is the heading. */
[[nodiscard]] std::string table(const std::vector<Row> &rows);

/** The answer, trimmed; the default when it is empty. A Problem when standard input ends first. */
[[nodiscard]] std::string ask(const std::string &question, const std::string &byDefault = {});

/** The same without echo, which is restored afterwards, also when a signal ends the program. */
[[nodiscard]] std::string askSecret(const std::string &question);

/** A QR code in half blocks, dark on light where colours are used; empty when too long. */
[[nodiscard]] std::string qrCode(const std::string &text);

} // namespace Terminal

#endif
