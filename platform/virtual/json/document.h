#ifndef IVRA_VIRTUAL_JSON_DOCUMENT_H
#define IVRA_VIRTUAL_JSON_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ivra::virtual_platform {

/// A file that cannot be used. The text names the file, the place in it (a JSON pointer, or line and column) and what
/// was expected there.
class file_error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// "FILE: PLACE: WHAT", on one line; the place is a JSON pointer or stands in words.
std::string told(const std::filesystem::path& file, std::string_view place, std::string_view what);

/// A mistake at this place. Throws file_error.
[[noreturn]] void mistake(const std::filesystem::path& file, std::string_view place, std::string_view what);

/// The text of a regular file. Throws file_error, also when it is very large.
std::string read_file(const std::filesystem::path& file);

namespace json {

struct member_t;
struct value_t;
using list_t = std::vector<value_t>;
using object_t = std::vector<member_t>; ///< in the order of the file

/// A value, and where it stands.
struct value_t
{
    /// Of whole numbers only negative ones are std::int64_t.
    using content_t =
        std::variant<std::nullptr_t, bool, std::uint64_t, std::int64_t, double, std::string, list_t, object_t>;

    value_t();
    value_t(content_t some, std::size_t at = 0);
    value_t(const value_t&);
    value_t(value_t&&) noexcept;
    value_t& operator=(const value_t&);
    value_t& operator=(value_t&&) noexcept;
    ~value_t();

    template <class T>
    const T* as() const
    {
        return std::get_if<T>(&content);
    }
    bool is_null() const { return content.index() == 0; }

    content_t content;
    std::size_t place = 0; ///< bytes from the start of the file: where a list or object begins, and others end
    std::size_t end = 0;
};

struct member_t
{
    std::string name;
    value_t value{};
    std::size_t place = 0; ///< where its name ends
};

/// Parses a text of JSON, with or without a byte order mark; no member comes twice. `file` is named in errors, and
/// `expected` is what an empty one should have been. Throws file_error.
value_t parse(std::string_view text, const std::filesystem::path& file, std::string_view expected);

/// On one line, without spaces.
std::string compact(const value_t& value);

/// For people: what fits on a line stands on one, but for so many of the outermost levels.
std::string laid_out(const value_t& value, std::size_t spread_levels = 1);

} // namespace json

} // namespace ivra::virtual_platform

#endif
