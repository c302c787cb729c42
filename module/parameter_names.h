#pragma once

#include <cstddef>

namespace fragments {

/// Where the names of the parameters stand in a stringised parameter list. For compile time only.
struct ParameterNames
{
    /// The part of the list from `begin` up to but not including `end`.
    struct Name
    {
        size_t begin;
        size_t end;
    };

    constexpr explicit ParameterNames(const char* stringised) : list(stringised)
    {
        size_t count = 0;
        size_t begin = 0; // of the identifier read last
        size_t end = 0;
        for (size_t i = 0; list[i] != '\0'; ++i) {
            if (is_word(list[i])) {
                if (end != i) begin = i;
                end = i + 1;
            }
            if (list[i] == ',' || list[i] == ')') names[count++] = {begin, end};
        }
    }

    constexpr Name operator[](size_t k) const { return names[k]; }

    /// Whether name k comes before name n in byte order.
    constexpr bool precedes(size_t k, size_t n) const
    {
        size_t a = names[k].begin;
        size_t b = names[n].begin;
        while (a < names[k].end && b < names[n].end && list[a] == list[b]) ++a, ++b;
        if (a == names[k].end || b == names[n].end) return a == names[k].end && b < names[n].end;
        return static_cast<unsigned char>(list[a]) < static_cast<unsigned char>(list[b]);
    }

    const char* list;
    Name names[41]{};

private:
    static constexpr bool is_word(char c)
    {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    }
};

} // namespace fragments
