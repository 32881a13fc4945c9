#include "output/section.h"

#include "text/text.h"

#include <utility>

namespace ivra::bsp {

namespace {

std::string&& to_text(std::string&& value)
{
    return std::move(value);
}

std::string to_text(const char* value)
{
    return value == nullptr ? std::string{} : value;
}

} // namespace

template <class T>
stat_t& stat_t::set_value(T v)
{
    value = to_text(std::move(v));
    return *this;
}

template stat_t& stat_t::set_value(std::string);

section::section(std::string section_name, std::optional<std::string> section_key, unsigned short section_level)
    : name{std::move(section_name)}, key{std::move(section_key)}, level{section_level}
{
}

section& section::add_stat(const stat_t& stat)
{
    entries.emplace_back(stat);
    return *this;
}

template <class T>
section& section::add_stat(const std::string& stat_name, T value, color c)
{
    auto& stat = std::get<stat_t>(entries.emplace_back());
    stat.name = stat_name;
    stat.value = to_text(std::move(value));
    stat.color = c;
    return *this;
}

template section& section::add_stat(const std::string&, const char*, color);
template section& section::add_stat(const std::string&, std::string, color);

section::list& section::add_list(const std::string& list_name)
{
    return std::get<list>(entries.emplace_back(list{list_name, static_cast<unsigned short>(level + 1), {}}));
}

section& section::list::add_section(const std::string& section_name, const std::string& section_key,
                                    unsigned short section_level)
{
    return std::get<section>(
        entries.emplace_back(std::in_place_type<section>, section_name, section_key, section_level));
}

template <class T>
std::string stat_str(T value, const std::string& unit, std::size_t precision)
{
    return fixed(value, precision) + ' ' + unit;
}

template std::string stat_str(double, const std::string&, std::size_t);

void add_boot_image_stat(section& s, const std::string& name, board::boot_image_t image)
{
    switch (image) {
    case board::boot_image_t::none:
        s.add_stat<std::string>(name, "none", color::red);
        return;
    case board::boot_image_t::primary:
        s.add_stat<std::string>(name, "primary", color::green);
        return;
    case board::boot_image_t::backup:
        s.add_stat<std::string>(name, "backup", color::yellow);
        return;
    }
    s.add_stat<std::string>(name, "", color::normal);
}

} // namespace ivra::bsp
