#pragma once

#include <cstdint>

namespace fragments {

/// Stride of an array whose elements follow each other: a constant, so that loops vectorise.
struct Contiguous
{
    Contiguous() = default;
    explicit Contiguous(int64_t) {}
    operator int64_t() const { return 1; }
};

/// Stride of an arbitrary view, in elements.
struct Strided
{
    Strided() = default;
    explicit Strided(int64_t step) : step(step) {}
    operator int64_t() const { return step; }
    int64_t step = 0;
};

#ifdef FRAGMENTS_CHECKED
constexpr bool checked = true;

/// Thrown by an access outside a view; the frame turns it into an IndexError.
struct OutOfView
{
    const char* name;
    int64_t index;
    int64_t length;
};

inline void check(const char* name, int64_t index, int64_t length)
{
    if (index < 0 || index >= length) throw OutOfView{name, index, length};
}
#else
constexpr bool checked = false;
#endif

/// An element where it lies: a view need not be aligned, so the compiler may not count on it.
template <class T>
struct Cell
{
    using Type [[gnu::aligned(1)]] = T;
};

/// A rank-1 view of elements of type T that the host owns, or a section of one, to be read.
/// ArrayOut, below, is one that may be written too.
///
/// An array may be absent (the host passed None): its length is 0 and no element may be touched.
/// Arrays can overlap, also arrays of different kinds, so no access is ever taken as free of
/// aliases. The release build tests no access; the checked build throws OutOfView, with the index
/// counted from the start of the view.
template <class T, class Stride>
class Array
{
public:
    Array() = default;
    Array(T* data, Stride stride, int64_t length, [[maybe_unused]] const char* name)
        : data_(data), stride_(stride), length_(length)
    {
#ifdef FRAGMENTS_CHECKED
        name_ = name;
#endif
    }

    T operator[](int64_t i) const
    {
        return cell(i);
    }

    /// The section that starts at `base` and reaches to the end of the view.
    Array from(int64_t base) const
    {
        Array section = *this;
        section.advance(base);
        return section;
    }

    /// Number of elements from the start of this section to the end of the view; 0 for None.
    int64_t length() const
    {
        return length_;
    }

    /// Whether the host passed an array, be it an empty one, and not None. Only for whole views.
    bool given() const
    {
        return data_ != nullptr;
    }

    const T* data() const
    {
        return data_;
    }

protected:
    typename Cell<T>::Type& cell(int64_t i) const
    {
#ifdef FRAGMENTS_CHECKED
        check(name_, offset_ + i, offset_ + length_);
#endif
        return data_[i * stride_];
    }

    void advance(int64_t base)
    {
        // Integer arithmetic, as a section of an absent array may be formed but not touched.
        const auto bytes = static_cast<uint64_t>(base * stride_) * sizeof(T);
        data_ =
            reinterpret_cast<typename Cell<T>::Type*>(reinterpret_cast<uint64_t>(data_) + bytes);
        length_ -= base;
#ifdef FRAGMENTS_CHECKED
        offset_ += base;
#endif
    }

    typename Cell<T>::Type* data_ = nullptr;

private:
    [[no_unique_address]] Stride stride_{};
    int64_t length_ = 0;
#ifdef FRAGMENTS_CHECKED
    const char* name_ = "";
    int64_t offset_ = 0;
#endif
};

/// A view that is written, or read and written. It can be read wherever an Array is asked for.
template <class T, class Stride>
class ArrayOut : public Array<T, Stride>
{
public:
    using Array<T, Stride>::Array;

    typename Cell<T>::Type& operator[](int64_t i) const { return this->cell(i); }

    ArrayOut from(int64_t base) const
    {
        ArrayOut section = *this;
        section.advance(base);
        return section;
    }

    T* data() const { return this->data_; }
};

template <class S>
using I32 = Array<int32_t, S>;
template <class S>
using I64 = Array<int64_t, S>;
template <class S>
using F64 = Array<double, S>;
template <class S>
using I32Out = ArrayOut<int32_t, S>;
template <class S>
using I64Out = ArrayOut<int64_t, S>;
template <class S>
using F64Out = ArrayOut<double, S>;

/// A rank-2 view to be read: `rows` by `columns` elements, with a stride for each dimension.
template <class T, class Stride>
class Matrix
{
public:
    Matrix(T* data, int64_t row_stride, Stride stride, int64_t rows, int64_t columns,
           [[maybe_unused]] const char* name)
        : data_(data),
          row_stride_(row_stride),
          stride_(stride),
          rows_(static_cast<int>(rows)),
          columns_(static_cast<int>(columns))
    {
#ifdef FRAGMENTS_CHECKED
        name_ = name;
#endif
    }

    T operator()(int64_t i, int64_t j) const
    {
        return cell(i, j);
    }

    /// Extents, of which the low 32 bits count; 0 for None.
    int rows() const
    {
        return rows_;
    }
    int columns() const
    {
        return columns_;
    }

protected:
    typename Cell<T>::Type& cell(int64_t i, int64_t j) const
    {
#ifdef FRAGMENTS_CHECKED
        check(name_, i, rows_);
        check(name_, j, columns_);
#endif
        return data_[i * row_stride_ + j * stride_];
    }

private:
    typename Cell<T>::Type* data_;
    int64_t row_stride_;
    [[no_unique_address]] Stride stride_;
    int rows_;
    int columns_;
#ifdef FRAGMENTS_CHECKED
    const char* name_ = "";
#endif
};

/// The same for one that is written, or read and written.
template <class T, class Stride>
class MatrixOut : public Matrix<T, Stride>
{
public:
    using Matrix<T, Stride>::Matrix;

    typename Cell<T>::Type& operator()(int64_t i, int64_t j) const { return this->cell(i, j); }
};

} // namespace fragments
