#pragma once

#include <cstddef>

namespace fragments {

/// Names of the parameters in a stringised parameter list, each ended by a null character.
template <size_t Size>
struct ParameterNames
{
    consteval explicit ParameterNames(const char (&list)[Size])
    {
        size_t count = 0;
        size_t start = 0; // of the identifier read last
        bool inside = false;
        for (size_t i = 0; i < Size; ++i) {
            const char c = list[i];
            const bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                              (c >= '0' && c <= '9') || c == '_';
            if (word && !inside) start = i;
            inside = word;
            if (c == ',' || c == ')') offset[count++] = start;
            text[i] = word ? c : '\0';
        }
    }

    constexpr const char* operator[](size_t k) const { return text + offset[k]; }

    char text[Size]{};
    size_t offset[40]{};
};

constexpr bool precedes(const char* a, const char* b)
{
    while (*a != '\0' && *a == *b) ++a, ++b;
    return static_cast<unsigned char>(*a) < static_cast<unsigned char>(*b);
}

} // namespace fragments
