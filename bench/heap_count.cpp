/// Counts a program's allocations by who makes them: for LD_PRELOAD. It allocates nothing itself.
#include "heap_count.h"

#include <fcntl.h>
#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>

// The C library's own, by the names under which it keeps them for those who stand in front.
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);
}

namespace {

struct object_t {
    uintptr_t from, to;
    heap_owner_t owner;
};

struct block_t {
    void *address;
    size_t size;
    heap_owner_t owner;
};

object_t objects[8]; // those that are not the C library's
size_t object_count;
block_t blocks[1024]; // that are held now
heap_counts_t *counts;
std::atomic_flag busy;

struct guard_t {
    guard_t()
    {
        while (busy.test_and_set(std::memory_order_acquire)) {
        }
    }
    ~guard_t() { busy.clear(std::memory_order_release); }
};

int note_object(dl_phdr_info *info, size_t, void *)
{
    const char *file = strrchr(info->dlpi_name, '/');
    object_t object = {UINTPTR_MAX, 0, *info->dlpi_name == '\0' ? HEAP_DAEMON : HEAP_BOARD};
    if (object.owner == HEAP_BOARD && (!file || !strncmp(file, "/libc.", 6) || !strncmp(file, "/ld-", 4)))
        return 0;
    for (int i = 0; i < info->dlpi_phnum; i++) {
        const auto &segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD)
            continue;
        object.from = std::min<uintptr_t>(object.from, info->dlpi_addr + segment.p_vaddr);
        object.to = std::max<uintptr_t>(object.to, info->dlpi_addr + segment.p_vaddr + segment.p_memsz);
    }
    if (object_count == std::size(objects))
        abort();
    objects[object_count++] = object;
    return 0;
}

__attribute__((constructor)) void begin()
{
    const char *path = getenv(HEAP_COUNT_FILE);
    const int fd = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0)
        return;
    dl_iterate_phdr(note_object, nullptr);
    void *file = mmap(nullptr, sizeof *counts, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (file != MAP_FAILED)
        counts = static_cast<heap_counts_t *>(file);
}

heap_owner_t owner_of(const void *caller)
{
    const auto address = reinterpret_cast<uintptr_t>(caller);
    for (size_t i = 0; i < object_count; i++)
        if (address >= objects[i].from && address < objects[i].to)
            return objects[i].owner;
    return HEAP_C_LIBRARY;
}

block_t *find(const void *address)
{
    for (block_t &block : blocks)
        if (block.address == address)
            return &block;
    return nullptr;
}

void *add(void *address, size_t size, const void *caller)
{
    if (!address || !counts)
        return address;
    guard_t guard;
    block_t *block = find(nullptr);
    if (!block)
        abort(); // a leak, or a table that is too small: both are for people to look at
    *block = {address, size, owner_of(caller)};
    heap_use_t &use = counts->of[block->owner];
    use.blocks++;
    use.held += size;
    use.most = std::max(use.most, use.held);
    if (block->owner == HEAP_DAEMON)
        counts->daemons_blocks[std::min(size, heap_counts_t::LARGER)]++;
    return address;
}

void remove(void *address)
{
    if (!address || !counts)
        return;
    guard_t guard;
    if (block_t *block = find(address)) { // else it is older than begin()
        counts->of[block->owner].held -= block->size;
        *block = {};
    }
}

} // namespace

extern "C" {

void *malloc(size_t size) noexcept { return add(__libc_malloc(size), size, __builtin_return_address(0)); }

void *calloc(size_t count, size_t size) noexcept
{
    return add(__libc_calloc(count, size), count * size, __builtin_return_address(0));
}

void *realloc(void *block, size_t size) noexcept
{
    remove(block);
    return add(__libc_realloc(block, size), size, __builtin_return_address(0));
}

void free(void *block) noexcept
{
    remove(block);
    __libc_free(block);
}
}
