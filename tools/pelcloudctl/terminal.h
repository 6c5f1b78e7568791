#ifndef PELCLOUD_TOOLS_PELCLOUDCTL_TERMINAL_H
#define PELCLOUD_TOOLS_PELCLOUDCTL_TERMINAL_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

class QString;

/** What a person sees, and what a person types. */
namespace Terminal {

enum class Colour { Plain, Bold, Dim, Green, Yellow, Red };

/** Whether `stream` is a terminal. */
[[nodiscard]] bool isTerminal(std::FILE *stream);

/** Whether colours are welcome there: a terminal, and no NO_COLOR in the environment. */
[[nodiscard]] bool isColourful(std::FILE *stream);

/** The text, coloured where standard output is to have colours. */
[[nodiscard]] std::string painted(Colour colour, std::string_view text);

/** UTF-8, every control character a "?", so that no record can send the terminal a command. */
[[nodiscard]] std::string printable(const QString &text);
[[nodiscard]] std::string printable(std::string_view utf8);

/** Prints the text and what is buffered; a Problem when that fails, on a full disk for example. */
void print(std::string_view text);

/** A cell of a table: its text, and how to show it. */
struct Cell
{
    std::string text;
    Colour colour = Colour::Plain;
    bool isNumber = false; // stands on the right
};
using Row = std::vector<Cell>;

/** The rows in columns as wide as they need to be, two blanks apart; the first row is the head. */
[[nodiscard]] std::string table(const std::vector<Row> &rows);

/**
 * What the person answers to the question, without blanks around it; the default when that is
 * nothing. A Problem when standard input ends first.
 */
[[nodiscard]] std::string ask(const std::string &question, const std::string &byDefault = {});

/** The same without an echo. The terminal is as before afterwards, also after Ctrl-C. */
[[nodiscard]] std::string askSecret(const std::string &question);

/** A QR code of half blocks, dark on light whatever the terminal's colours; empty when too long. */
[[nodiscard]] std::string qrCode(const std::string &text);

} // namespace Terminal

#endif
