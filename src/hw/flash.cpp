#include "hw/flash.h"

#include "hw/own.h"

#include <algorithm>

namespace ivra::v6::flash {

namespace {

const char* section_or_throw(const char* section)
{
    if (section == nullptr)
        throw std::system_error{hw::last_error(), "Failed to create section object"};
    return section;
}

} // namespace

flash::flash(const hw::core& core)
    : core_{core}, handle_{hw::own(ivra_flash_create(core_.get()), &ivra_flash_destroy,
                                   "Failed to create flash management subsystem")},
      pgm_{section_or_throw(ivra_flash_get_section_pgm(handle_.get()))},
      usr_{section_or_throw(ivra_flash_get_section_usr(handle_.get()))},
      prm_{section_or_throw(ivra_flash_get_section_prm(handle_.get()))}, otp_{section_or_throw(
                                                                             ivra_flash_get_section_otp(handle_.get()))}
{
}

hw::result<std::uint64_t> flash::get_memory_size() const
{
    std::uint64_t bytes = 0;
    if (ivra_flash_get_memory_size(handle_.get(), &bytes) < 0)
        return hw::last_error();
    return bytes;
}

hw::result<std::uint64_t> flash::get_sector_size() const
{
    std::uint64_t bytes = 0;
    if (ivra_flash_get_sector_size(handle_.get(), &bytes) < 0)
        return hw::last_error();
    return bytes;
}

hw::result<std::vector<const char*>> flash::get_sections_char(const char* name) const
{
    const int count = ivra_flash_get_sections(handle_.get(), name, nullptr, 0);
    if (count < 0)
        return hw::last_error();
    std::vector<const char*> sections(static_cast<std::size_t>(count), nullptr);
    const int filled = ivra_flash_get_sections(handle_.get(), name, sections.data(), sections.size());
    if (filled < 0)
        return hw::last_error();
    sections.resize(std::min(sections.size(), static_cast<std::size_t>(filled)));
    return sections;
}

const char* flash::get_section_name(const char* section) const
{
    return ivra_flash_get_section_name(handle_.get(), section);
}

hw::result<std::uint64_t> flash::get_section_start_address(const char* section) const
{
    std::uint64_t address = 0;
    if (ivra_flash_get_section_start_address(handle_.get(), section, &address) < 0)
        return hw::last_error();
    return address;
}

hw::result<std::uint64_t> flash::get_section_size(const char* section) const
{
    std::uint64_t bytes = 0;
    if (ivra_flash_get_section_size(handle_.get(), section, &bytes) < 0)
        return hw::last_error();
    return bytes;
}

std::error_code flash::write_section(const char* section, std::uint64_t offset, std::span<const std::uint8_t> data)
{
    if (ivra_flash_write_section(handle_.get(), section, offset, data.data(), data.size()) < 0)
        return hw::last_error();
    return {};
}

} // namespace ivra::v6::flash
