#include "json/document.h"

#include "json/text.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <optional>
#include <system_error>
#include <unordered_set>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

constexpr std::size_t largest_file = 64U << 20U;

/// Owns a file descriptor.
class descriptor
{
public:
    explicit descriptor(int number) : number_{number} {}
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    ~descriptor()
    {
        if (number_ >= 0)
            ::close(number_);
    }
    int get() const { return number_; }

private:
    int number_;
};

[[noreturn]] void unreadable(const std::filesystem::path& file, int error)
{
    mistake(file, "", "cannot be read: " + std::generic_category().message(error));
}

} // namespace

std::string told(const std::filesystem::path& file, std::string_view place, std::string_view what)
{
    const std::string separator = place.empty() ? "" : ": ";
    return printable(file.string() + ": " + std::string{place} + separator + std::string{what});
}

void mistake(const std::filesystem::path& file, std::string_view place, std::string_view what)
{
    throw file_error{told(file, place, what)};
}

std::string read_file(const std::filesystem::path& file)
{
    // Deliberate: never waits for the other end of a FIFO, which is refused below.
    const descriptor input{::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat status = {};
    if (input.get() < 0 || ::fstat(input.get(), &status) != 0)
        unreadable(file, errno);
    if (S_ISDIR(status.st_mode))
        unreadable(file, EISDIR);
    if (!S_ISREG(status.st_mode))
        mistake(file, "", "expected a regular file");

    std::string text;
    std::array<char, 4096> piece{};
    while (text.size() <= largest_file) {
        const ssize_t count = ::read(input.get(), piece.data(), piece.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            unreadable(file, errno);
        if (count == 0)
            return text;
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    mistake(file, "", "expected a file of at most 64 MiB");
}

namespace json {

// Here, where members are complete.
value_t::value_t() = default;
value_t::value_t(content_t some, std::size_t at) : content{std::move(some)}, place{at}, end{at} {}
value_t::value_t(const value_t&) = default;
value_t::value_t(value_t&&) noexcept = default;
value_t& value_t::operator=(const value_t&) = default;
value_t& value_t::operator=(value_t&&) noexcept = default;
value_t::~value_t() = default;

namespace {

using rapidjson::SizeType;

constexpr std::size_t deepest_nesting = 32; // several times what a rack needs; walking a document recurses
constexpr std::size_t few_members = 16;     // compared one by one
constexpr std::size_t usual_size = 4;       // of lists and objects: saves most of them from growing

/// Builds the document, and finds what is no mistake of the grammar: nesting that is too deep, members that come twice.
class builder
{
public:
    explicit builder(const rapidjson::MemoryStream& stream) : stream_{stream} {}

    const std::optional<std::string>& mistake_found() const { return mistake_; }
    value_t take() { return std::move(root_); }

    bool Null() { return put<std::nullptr_t>(nullptr); }
    bool Bool(bool value) { return put<bool>(value); }
    /// Every number. Deliberate: RapidJSON's own exact conversion has undefined behaviour for some zeros ("0E19").
    bool RawNumber(const char* text, SizeType length, bool)
    {
        const char* const end = text + length;
        if (const auto number = parsed<std::uint64_t>(text, end))
            return put<std::uint64_t>(*number);
        if (const auto number = parsed<std::int64_t>(text, end)) {
            if (*number == 0)
                return put<std::uint64_t>(0U); // "-0"
            return put<std::int64_t>(*number);
        }
        if (const auto number = parsed<double>(text, end))
            return put<double>(*number);
        put<std::nullptr_t>(nullptr);
        return fail("expected a number that a double can hold");
    }
    // Numbers come as texts.
    bool Int(int) { return false; }
    bool Uint(unsigned) { return false; }
    bool Int64(std::int64_t) { return false; }
    bool Uint64(std::uint64_t) { return false; }
    bool Double(double) { return false; }
    bool String(const char* text, SizeType length, bool) { return put<std::string>(text, length); }
    bool StartObject() { return open<object_t>(); }
    bool StartArray() { return open<list_t>(); }
    bool EndObject(SizeType) { return close(); }
    bool EndArray(SizeType) { return close(); }

    bool Key(const char* text, SizeType length, bool)
    {
        level_t& level = levels_.back();
        auto& members = std::get<object_t>(level.value->content);
        const std::string_view name{text, length};
        bool is_new = true;
        if (members.size() < few_members) {
            is_new = std::ranges::find(members, name, &member_t::name) == members.end();
        } else {
            if (level.names.empty())
                for (const member_t& member : members)
                    level.names.insert(member.name);
            is_new = level.names.insert(std::string{name}).second;
        }
        members.push_back({std::string{name}, {}, stream_.Tell()});
        return is_new || fail("expected this member once, but it comes again");
    }

private:
    /// A list or object that has not ended yet. It stays where it is: nothing is added above it meanwhile.
    struct level_t
    {
        value_t* value;
        std::unordered_set<std::string> names; ///< of many members
    };

    /// The whole text as a number of this type; nothing when it is none.
    template <class T>
    static std::optional<T> parsed(const char* begin, const char* end)
    {
        T number{};
        const auto [last, error] = std::from_chars(begin, end, number);
        return error == std::errc{} && last == end ? std::optional{number} : std::nullopt;
    }

    /// The value that comes next.
    value_t& next()
    {
        if (levels_.empty())
            return root_;
        auto& above = levels_.back().value->content;
        if (auto* list = std::get_if<list_t>(&above))
            return list->emplace_back();
        return std::get<object_t>(above).back().value;
    }

    template <class T, class... Arguments>
    bool put(Arguments... arguments)
    {
        value_t& value = next();
        value.content.emplace<T>(arguments...);
        value.place = value.end = stream_.Tell();
        return true;
    }

    template <class T>
    bool open()
    {
        if (levels_.size() == deepest_nesting) {
            put<std::nullptr_t>(nullptr);
            return fail("expected no more than " + std::to_string(deepest_nesting) + " levels of nesting");
        }
        value_t& value = next();
        value.content.emplace<T>().reserve(usual_size);
        value.place = stream_.Tell();
        levels_.push_back({&value, {}});
        return true;
    }

    bool close()
    {
        levels_.back().value->end = stream_.Tell();
        levels_.pop_back();
        return true;
    }

    /// A mistake at the value, or the name, that came last.
    bool fail(const std::string& what)
    {
        std::string pointer;
        for (const level_t& level : levels_)
            if (const auto* list = level.value->as<list_t>())
                pointer += '/' + std::to_string(list->size() - 1);
            else
                pointer += '/' + pointer_token(level.value->as<object_t>()->back().name);
        mistake_ = pointer + ": " + what;
        return false;
    }

    const rapidjson::MemoryStream& stream_;
    value_t root_;
    std::vector<level_t> levels_;
    std::optional<std::string> mistake_;
};

/// "line 3, column 7" of a byte; both count from 1, columns in characters.
std::string line_and_column(std::string_view text, std::size_t offset)
{
    const std::string_view before = text.substr(0, offset);
    const auto line = std::ranges::count(before, '\n') + 1;
    const std::size_t start = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    const auto column = std::ranges::count_if(before.substr(start),
                                              [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; });
    return "line " + std::to_string(line) + ", column " + std::to_string(column + 1);
}

std::string syntax_error(rapidjson::ParseErrorCode code, std::string_view text, std::size_t offset)
{
    // RapidJSON calls a control character a wrong escape.
    if (code == rapidjson::kParseErrorStringEscapeInvalid && offset < text.size() &&
        static_cast<std::uint8_t>(text[offset]) < 0x20)
        return "A control character in a string, expected \\u00" + hex_pair(static_cast<std::uint8_t>(text[offset]));
    std::string reason = rapidjson::GetParseError_En(code);
    if (reason.ends_with('.'))
        reason.pop_back();
    return reason;
}

} // namespace

value_t parse(std::string_view text, const std::filesystem::path& file, std::string_view expected)
{
    constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
    if (text.starts_with(byte_order_mark))
        text.remove_prefix(byte_order_mark.size());
    if (text.empty())
        mistake(file, "", "empty, expected " + std::string{expected});
    // Deliberate: to the parser a NUL byte is the end of the text, whatever follows.
    if (const std::size_t nul = text.find('\0'); nul != std::string_view::npos)
        mistake(file, line_and_column(text, nul), "expected text, not a NUL byte");

    constexpr unsigned flags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
    rapidjson::MemoryStream stream{text.data(), text.size()};
    rapidjson::Reader reader;
    builder handler{stream};
    reader.Parse<flags>(stream, handler);
    if (handler.mistake_found())
        mistake(file, "", *handler.mistake_found());
    if (reader.HasParseError()) {
        const std::size_t offset = reader.GetErrorOffset();
        mistake(file, line_and_column(text, offset),
                "not JSON: " + syntax_error(reader.GetParseErrorCode(), text, offset));
    }
    return handler.take();
}

} // namespace json

} // namespace ivra::virtual_platform
