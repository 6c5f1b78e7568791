#ifndef PELCLOUD_FUZZ_LOCALESCOPE_H
#define PELCLOUD_FUZZ_LOCALESCOPE_H

#include <array>
#include <cstddef>
#include <locale.h>

/** Puts the thread into another locale while it lives. One that is not installed is the classic one. */
class LocaleScope
{
public:
    // The third has capitals and small letters of other lengths than each other, ASCII's among them.
    static constexpr std::array NAMES{ "C", "de_DE.UTF-8", "tr_TR.UTF-8" };

    explicit LocaleScope(std::size_t index)
        : m_previous(uselocale(opened(index % NAMES.size())))
    {}
    ~LocaleScope() { uselocale(m_previous); }
    LocaleScope(const LocaleScope &) = delete;
    LocaleScope &operator=(const LocaleScope &) = delete;

private:
    static locale_t opened(std::size_t index)
    {
        static std::array<locale_t, NAMES.size()> locales{}; // for good
        locale_t &locale = locales.at(index);
        if (locale == nullptr)
            locale = newlocale(LC_ALL_MASK, NAMES.at(index), nullptr);
        if (locale == nullptr)
            locale = newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }

    locale_t m_previous;
};

#endif
