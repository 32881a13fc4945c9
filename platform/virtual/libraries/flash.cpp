#include "libraries/handles.h"

#include <algorithm>

using namespace ivra::virtual_platform;

namespace {

/// A section as its handle shows it. The handle points to `text`, which is the section's name for whoever looks at it
/// in a debugger; two sections of one name have different addresses.
struct section_handle_t
{
    std::string text;
    const flash_section_t* section;
};

} // namespace

struct ivra_flash : device_base<ivra_flash, handle_kind::flash>
{
    explicit ivra_flash(const ivra_hw_core& core) : device_base{core, hardware_ids::flash}
    {
        for (const flash_section_t& section : device()->flash.sections)
            sections.push_back({section.name.value_or(""), &section});
    }

    const char* first_called(std::string_view name) const
    {
        for (const auto& [text, section] : sections) {
            if (section->name == name)
                return text.c_str();
        }
        throw failure{ENOENT};
    }

    std::vector<section_handle_t> sections;
};

namespace {

/// Throws failure{EINVAL} for what is no section of this flash.
const flash_section_t& section_of(const ivra_flash* flash, const char* handle)
{
    require(flash != nullptr && handle != nullptr);
    const auto found =
        std::find_if(flash->sections.begin(), flash->sections.end(),
                     [&](const section_handle_t& candidate) { return candidate.text.c_str() == handle; });
    require(found != flash->sections.end());
    return *found->section;
}

} // namespace

namespace ivra::virtual_platform {

/// A section as an argument in the trace, such as "PARAMS"@0x7fc0000.
struct section_argument_t
{
    const ivra_flash* flash;
    const char* handle;
};

static std::string describe(const section_argument_t& argument)
{
    if (argument.flash == nullptr || argument.handle == nullptr)
        return "NULL";
    for (const auto& [text, section] : argument.flash->sections) {
        if (text.c_str() == argument.handle)
            return describe(std::string_view{text}) + "@" + describe(hexadecimal_t{section->start});
    }
    return "no section";
}

} // namespace ivra::virtual_platform

namespace {

/// What the trace may look at of data to be written: nothing when their length cannot be true.
std::span<const std::byte> traceable(const ivra_flash* flash, const void* data, std::size_t length)
{
    return bytes_of(data, flash != nullptr && length <= flash->device()->flash.size ? length : 0);
}

const char* get_section(const char* function, ivra_flash* flash, std::string_view name)
{
    call c{function, device_of(flash)};
    return c.handle([&] {
        require(flash != nullptr);
        return flash->first_called(name);
    });
}

} // namespace

ivra_flash* ivra_flash_create(ivra_hw_core* core)
{
    call c{__func__, device_of(core)};
    return c.handle([&] {
        require(core != nullptr);
        return ivra_flash::give(std::make_shared<ivra_flash>(*core));
    });
}

void ivra_flash_destroy(ivra_flash* flash)
{
    call c{__func__, device_of(flash)};
    c.nothing([&] { ivra_flash::take_back(flash); });
}

const char* ivra_flash_get_section_pgm(ivra_flash* flash)
{
    return get_section(__func__, flash, "PGM");
}

const char* ivra_flash_get_section_usr(ivra_flash* flash)
{
    return get_section(__func__, flash, "USR");
}

const char* ivra_flash_get_section_prm(ivra_flash* flash)
{
    return get_section(__func__, flash, IVRA_FLASH_SECTION_PARAMS);
}

const char* ivra_flash_get_section_otp(ivra_flash* flash)
{
    return get_section(__func__, flash, "OTP");
}

int ivra_flash_get_memory_size(ivra_flash* flash, std::uint64_t* bytes)
{
    call c{__func__, device_of(flash)};
    return c.status([&] {
        require(flash != nullptr && bytes != nullptr);
        c.store(bytes, flash->device()->flash.size);
    });
}

int ivra_flash_get_sector_size(ivra_flash* flash, std::uint64_t* bytes)
{
    call c{__func__, device_of(flash)};
    return c.status([&] {
        require(flash != nullptr && bytes != nullptr);
        c.store(bytes, flash->device()->flash.sector);
    });
}

int ivra_flash_get_sections(ivra_flash* flash, const char* name, const char** sections, std::size_t capacity)
{
    call c{__func__, device_of(flash)};
    return c.with(name, capacity).count([&] {
        require(flash != nullptr && (sections != nullptr || capacity == 0));
        std::size_t count = 0;
        for (const auto& [text, section] : flash->sections) {
            if (name != nullptr && section->name != name)
                continue;
            if (count < capacity)
                sections[count] = text.c_str();
            ++count;
        }
        return count;
    });
}

const char* ivra_flash_get_section_name(ivra_flash* flash, const char* section)
{
    call c{__func__, device_of(flash)};
    return c.with(section_argument_t{flash, section}).borrowed_text([&] {
        const flash_section_t& found = section_of(flash, section);
        return found.name ? found.name->c_str() : nullptr;
    });
}

int ivra_flash_get_section_start_address(ivra_flash* flash, const char* section, std::uint64_t* address)
{
    call c{__func__, device_of(flash)};
    return c.with(section_argument_t{flash, section}).status([&] {
        require(address != nullptr);
        c.store(address, section_of(flash, section).start);
    });
}

int ivra_flash_get_section_size(ivra_flash* flash, const char* section, std::uint64_t* bytes)
{
    call c{__func__, device_of(flash)};
    return c.with(section_argument_t{flash, section}).status([&] {
        require(bytes != nullptr);
        c.store(bytes, section_of(flash, section).size);
    });
}

int ivra_flash_write_section(ivra_flash* flash, const char* section, std::uint64_t offset, const void* data,
                             std::size_t length)
{
    call c{__func__, device_of(flash)};
    return c.with(section_argument_t{flash, section}, hexadecimal_t{offset}, traceable(flash, data, length), length)
        .status([&] {
            const flash_section_t& target = section_of(flash, section);
            require(data != nullptr || length == 0);
            require(offset <= target.size && length <= target.size - offset, EFBIG);
            require(!target.write_protected, EROFS);
            flash->state().flash().write(target.start + offset,
                                         {static_cast<const std::uint8_t*>(data), c.at_most(length)});
        });
}
