#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>

#include "array.h"

namespace fragments {

/// A zero-filled vector of `length` elements that lives for one call; none for a length below 1.
/// Throws std::bad_alloc, which the frame reports as MemoryError: take it before anything is
/// written.
template <class T>
class Scratch
{
public:
    explicit Scratch(int64_t length)
        : data_(length < 1 ? nullptr
                           : static_cast<T*>(std::calloc(static_cast<size_t>(length), sizeof(T)))),
          length_(length < 1 ? 0 : length)
    {
        if (data_ == nullptr && length_ > 0) throw std::bad_alloc();
    }
    ~Scratch() { std::free(data_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    T& operator[](int64_t i) const
    {
#ifdef FRAGMENTS_CHECKED
        check("scratch", i, length_);
#endif
        return data_[i];
    }
    int64_t length() const
    {
        return length_;
    }
    T* data() const
    {
        return data_;
    }

private:
    T* data_;
    int64_t length_;
};

} // namespace fragments
