#ifndef IVRA_OUTPUT_JSON_ALLOCATOR_H
#define IVRA_OUTPUT_JSON_ALLOCATOR_H

#include <rapidjson/encodings.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

namespace ivra::bsp {

/// Memory for RapidJSON, which does not look whether it was given any: where there is none, this throws std::bad_alloc.
/// The names are RapidJSON's.
class json_allocator
{
public:
    static constexpr bool kNeedFree = true;

    static void* Malloc(std::size_t size) { return size == 0 ? nullptr : ::operator new(size); }
    static void* Realloc(void* old, std::size_t old_size, std::size_t size)
    {
        void* memory = Malloc(size);
        if (memory != nullptr && old != nullptr)
            std::memcpy(memory, old, std::min(old_size, size));
        Free(old);
        return memory;
    }
    static void Free(void* memory) { ::operator delete(memory); }
};

using json_buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, json_allocator>;
using json_writer = rapidjson::Writer<json_buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, json_allocator>;

} // namespace ivra::bsp

#endif
