// For the tests only: an allocator to be loaded before the program's own. It is that of the C
// library, but lets one allocation fail: the one that comes after `allocations_before_failure`
// others, if that is not negative.

#include <cerrno>
#include <cstddef>

extern "C" {

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);

[[gnu::visibility("default")]] long allocations_before_failure = -1;

namespace {

bool fails()
{
    if (allocations_before_failure < 0 || allocations_before_failure-- > 0) return false;
    errno = ENOMEM;
    return true;
}

} // namespace

[[gnu::visibility("default")]] void* malloc(size_t size)
{
    return fails() ? nullptr : __libc_malloc(size);
}

[[gnu::visibility("default")]] void* calloc(size_t count, size_t size)
{
    return fails() ? nullptr : __libc_calloc(count, size);
}

[[gnu::visibility("default")]] void* realloc(void* block, size_t size)
{
    return fails() ? nullptr : __libc_realloc(block, size);
}

} // extern "C"
