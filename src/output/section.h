#ifndef IVRA_OUTPUT_SECTION_H
#define IVRA_OUTPUT_SECTION_H

#include "records/boot_image.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace ivra::bsp {

/// Attribute with which a piece of text is shown.
enum class color : std::uint32_t
{
    normal = 0, ///< plain text; also written after every coloured piece
    bold = 1,   ///< headings
    red = 2,    ///< errors, absent or failed values
    green = 3,  ///< good or primary values
    yellow = 4, ///< warnings, secondary values
    blue = 5,
    orange = 6,
    vermilion = 7,
};

/// One statistic: a label and its value, already formatted. Only the value is coloured.
struct stat_t
{
    std::string name;
    std::string value;
    bsp::color color = bsp::color::normal;

    /// Replaces the value with the text of `v`. Instantiated for std::string.
    template <class T>
    stat_t& set_value(T v);
};

/// A report, or a part of one: a heading and, in the order in which they were added, statistics, sections, lists and
/// tables. `level` is the number of tabs with which the heading is indented.
struct section
{
    using stat_t = bsp::stat_t;
    struct entry;

    /// Entries without a heading; `name` is the member name in JSON.
    struct list
    {
        std::string name;
        unsigned short level = 0;
        std::list<entry> entries; // a std::list: references to entries outlive further additions

        /// Appends an empty section of exactly this level, whose name JSON shows as the member `section_key`.
        section& add_section(const std::string& section_name, const std::string& section_key,
                             unsigned short section_level);
    };

    /// A list whose name is printed as a bold heading.
    struct caption_list : list
    {
    };

    /// One row of a table; it may have fewer values than the table has headers.
    struct array_entry_t
    {
        std::string name;
        std::vector<std::string> values;
        bsp::color color = bsp::color::normal;
    };

    /// A table: a column of row names, then one column a header.
    struct array
    {
        std::string row_key;      ///< JSON member that holds a row's name
        std::string first_header; ///< heading of the row names; JSON member that holds the table
        std::vector<std::string> headers;
        std::vector<array_entry_t> rows;
        unsigned short level = 0;
    };

    section(std::string section_name, std::optional<std::string> section_key, unsigned short section_level);

    section& add_stat(const stat_t& stat);

    /// Appends a statistic with the text that an output stream makes of `value`; nothing for a null text.
    /// Instantiated for const char* and std::string.
    template <class T>
    section& add_stat(const std::string& stat_name, T value, color c);

    /// Appends an empty list, one level deeper than this section.
    list& add_list(const std::string& list_name);

    std::string name;
    std::optional<std::string> key; ///< of an item of a list: the JSON member that holds the name
    unsigned short level;
    std::list<entry> entries;
};

struct section::entry : std::variant<stat_t, section, section::list, section::caption_list, section::array>
{
    using variant::variant;
};

/// A number with `precision` decimals, a space and the unit (the space also before an empty unit).
/// Instantiated for double.
template <class T>
std::string stat_str(T value, const std::string& unit, std::size_t precision);

/// Appends a boot image by its name: "none" in red, "primary" in green, "backup" in yellow; nothing for other values.
void add_boot_image_stat(section& s, const std::string& name, board::boot_image_t image);

} // namespace ivra::bsp

#endif
