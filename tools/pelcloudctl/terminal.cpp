#include "tools/pelcloudctl/terminal.h"

#include "tools/pelcloudctl/problem.h"

#include <qrencode.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <system_error>
#include <termios.h>
#include <unistd.h>

#include <QString>

std::string errorWords(int error)
{
    return std::generic_category().message(error);
}

namespace Terminal {

namespace {

bool usesColours()
{
    const char *const refusal = std::getenv("NO_COLOR"); // NOLINT(concurrency-mt-unsafe)
    const char *const kind = std::getenv("TERM");        // NOLINT(concurrency-mt-unsafe)
    return isTerminal(stdout) && (refusal == nullptr || *refusal == '\0')
           && (kind == nullptr || std::string_view(kind) != "dumb");
}

const char *codeOf(Colour colour)
{
    switch (colour) {
    case Colour::Bold:
        return "\033[1m";
    case Colour::Dim:
        return "\033[2m";
    case Colour::Green:
        return "\033[32m";
    case Colour::Yellow:
        return "\033[33m";
    case Colour::Red:
        return "\033[1;31m";
    case Colour::Plain:
        break;
    }
    return "";
}

/** Columns of a UTF-8 text; the suite's texts have no wide characters. */
std::size_t widthOf(const std::string &text)
{
    return static_cast<std::size_t>(
            std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

/** Turns the echo of standard input off in this scope; restores it also when a signal ends us. */
class EchoOff
{
public:
    EchoOff()
    {
        m_isTerminal = tcgetattr(STDIN_FILENO, &s_before) == 0;
        if (!m_isTerminal)
            return;
        for (std::size_t i = 0; i < std::size(SIGNALS); ++i) {
            struct sigaction action = {};
            action.sa_handler = restoreAndEnd;
            sigaction(SIGNALS[i], &action, &m_actions[i]);
        }
        termios silent = s_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_cc[VSUSP] = _POSIX_VDISABLE; // the shell would have no echo after Ctrl-Z
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    ~EchoOff()
    {
        if (!m_isTerminal)
            return;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &s_before);
        for (std::size_t i = 0; i < std::size(SIGNALS); ++i)
            sigaction(SIGNALS[i], &m_actions[i], nullptr);
    }
    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;
    [[nodiscard]] bool isTerminal() const { return m_isTerminal; }

private:
    static constexpr int SIGNALS[] = { SIGINT, SIGTERM, SIGHUP, SIGQUIT };

    static void restoreAndEnd(int number)
    {
        tcsetattr(STDIN_FILENO, TCSANOW, &s_before);
        signal(number, SIG_DFL);
        raise(number);
    }

    static inline termios s_before; // static for the handler
    bool m_isTerminal = false;
    struct sigaction m_actions[std::size(SIGNALS)] = {};
};

std::string readLine()
{
    std::string line;
    if (!std::getline(std::cin, line))
        throw Problem("no answer: end of input");
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!line.empty() && isBlank(line.back()))
        line.pop_back();
    line.erase(line.begin(), std::find_if_not(line.begin(), line.end(), isBlank));
    return line;
}

} // namespace

bool isTerminal(std::FILE *stream)
{
    return isatty(fileno(stream)) == 1;
}

std::string painted(Colour colour, std::string_view text)
{
    if (colour == Colour::Plain || !usesColours())
        return std::string(text);
    return std::string(codeOf(colour)).append(text).append("\033[0m");
}

std::string printable(const QString &text)
{
    QString shown = text;
    for (QChar &c : shown) {
        if (!c.isPrint() && !c.isSurrogate())
            c = u'?';
    }
    return shown.toStdString();
}

std::string printable(std::string_view utf8)
{
    return printable(QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size())));
}

void print(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0)
        throw Problem("cannot write the output: " + errorWords(errno));
}

std::string table(const std::vector<Row> &rows)
{
    std::vector<std::size_t> widths;
    for (const Row &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], widthOf(row[i].text));
    }
    std::string text;
    for (const Row &row : rows) {
        std::string line;
        std::size_t blanks = 0; // not yet written: none at the end of a line
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::size_t room = widths[i] - widthOf(row[i].text);
            blanks += i == 0 ? 0 : 2;
            if (row[i].isNumber)
                blanks += room;
            if (!row[i].text.empty()) {
                const Colour colour = &row == &rows.front() ? Colour::Dim : row[i].colour;
                line.append(blanks, ' ').append(painted(colour, row[i].text));
                blanks = 0;
            }
            if (!row[i].isNumber)
                blanks += room;
        }
        text += line + '\n';
    }
    return text;
}

std::string ask(const std::string &question, const std::string &byDefault)
{
    print(byDefault.empty() ? question + ": " : question + " [" + byDefault + "]: ");
    const std::string answer = readLine();
    return answer.empty() ? byDefault : answer;
}

std::string askSecret(const std::string &question)
{
    const EchoOff echoOff; // before the question: the answer may come at once
    print(question + ": ");
    std::string answer = readLine();
    if (echoOff.isTerminal())
        print("\n");
    return answer;
}

std::string qrCode(const std::string &text)
{
    const std::unique_ptr<QRcode, void (*)(QRcode *)> code(
            QRcode_encodeString(text.c_str(), 0, QR_ECLEVEL_L, QR_MODE_8, 1), QRcode_free);
    if (code == nullptr)
        return {};
    constexpr int MARGIN = 2;
    const auto isDark = [&code](int x, int y) {
        return x >= 0 && y >= 0 && x < code->width && y < code->width
               && (code->data[y * code->width + x] & 1U) != 0;
    };
    // Two modules per character. Without colours, the terminal's own may invert the code.
    const bool isColoured = usesColours();
    std::string drawing;
    for (int y = -MARGIN; y < code->width + MARGIN; y += 2) {
        drawing += isColoured ? "\033[30;107m" : "";
        for (int x = -MARGIN; x < code->width + MARGIN; ++x) {
            const bool upper = isDark(x, y);
            const bool lower = isDark(x, y + 1);
            drawing += upper ? (lower ? "█" : "▀") : (lower ? "▄" : " ");
        }
        drawing += isColoured ? "\033[0m\n" : "\n";
    }
    return drawing;
}

} // namespace Terminal
