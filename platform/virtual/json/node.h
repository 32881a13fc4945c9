#ifndef IVRA_VIRTUAL_JSON_NODE_H
#define IVRA_VIRTUAL_JSON_NODE_H

#include "json/document.h"

#include <cstddef>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ivra::virtual_platform::json {

/// Whether a reading is asked for remarks: what is no mistake and hardly meant.
enum class remarks_t
{
    unwanted,
    wanted
};

/// The reading of one file. Of several mistakes the one that comes first in the file counts.
class reading
{
public:
    /// Files that it names are looked for in these folders, one after the other.
    explicit reading(const std::filesystem::path& file, std::vector<std::filesystem::path> folders = {},
                     remarks_t remarks = remarks_t::unwanted)
        : file_{file}, folders_{std::move(folders)}, wanted_{remarks}
    {
    }

    const std::filesystem::path& file() const { return file_; }
    const std::vector<std::filesystem::path>& folders() const { return folders_; }

    /// Where a file that the document names is; nothing when there is none.
    std::optional<std::filesystem::path> find(const std::filesystem::path& name) const;
    /// The text of another file. Throws file_error.
    std::string open(const std::filesystem::path& path);
    /// What tells the files apart that were opened since it was asked last: a line for each.
    std::string take_opened() { return std::exchange(opened_, {}); }

    bool has_mistake() const { return mistake_.has_value(); }
    /// What the mistake is, without its place; "" when there is none.
    std::string_view mistake_found() const { return mistake_ ? std::string_view{mistake_->what} : ""; }

    void note(std::size_t place, const std::string& pointer, std::string_view what);
    /// Says a mistake at this place in other words.
    void reword(std::size_t place, const std::string& from, const std::string& to);
    /// Whether a mistake came before this place: what stands there does not count any more.
    bool is_beyond_mistake(std::size_t place) const { return mistake_ && mistake_->place <= place; }
    /// Throws file_error when there was a mistake.
    void finish() const;

    remarks_t wanted() const { return wanted_; }
    void remark(std::size_t place, const std::string& pointer, std::string_view what);
    /// Every remark as a line, in the order of the file.
    std::vector<std::string> remarks() const;
    /// The same without places.
    std::vector<std::string> remark_texts() const;

private:
    /// What is to be said about a place.
    struct note_t
    {
        std::size_t place;
        std::string pointer, what;
    };

    const std::filesystem::path& file_;
    std::vector<std::filesystem::path> folders_;
    std::string opened_;
    std::optional<note_t> mistake_;
    remarks_t wanted_;
    std::vector<note_t> remarks_;
};

/// One step from a value to one below it: a member's name, or an element's index.
struct step_t
{
    step_t(const char* member) : name{member} {}
    step_t(std::string_view member) : name{member} {}
    step_t(std::size_t element) : index{element} {}

    std::string_view name{};
    std::size_t index = 0;
};

/// A value that is being read, and the way to it from the top of the document. The node above outlives it.
class node_t
{
public:
    node_t(const value_t& value, json::reading& reading) : value_{&value}, reading_{&reading} {}

    const value_t& value() const { return *value_; }
    json::reading& reading() const { return *reading_; }
    std::size_t index() const { return index_; } ///< of an element

    /// Null when the value is of another type.
    template <class T>
    const T* as() const
    {
        return value_->as<T>();
    }

    node_t below(const member_t& member) const { return {member.value, *this, member.name, 0}; }
    node_t below(const list_t& list, std::size_t index) const { return {list[index], *this, {}, index}; }

    /// Notes a mistake, here or at the last part of `path` that there is.
    void expected(std::string_view what) const { note(value_->place, "expected " + std::string{what}); }
    void expected_at(std::initializer_list<step_t> path, std::string_view what) const;
    /// The same of what is no mistake.
    void remark(std::string_view what) const { reading_->remark(value_->place, pointer(), what); }
    void remark_at(std::initializer_list<step_t> path, std::string_view what) const;
    /// null when there is nothing there.
    const value_t& value_at(std::initializer_list<step_t> path) const;
    void note(std::size_t place, const std::string& what) const { reading_->note(place, pointer(), what); }

private:
    node_t(const value_t& value, const node_t& above, std::string_view name, std::size_t index)
        : value_{&value}, reading_{above.reading_}, above_{&above}, name_{name}, index_{index}
    {
    }
    std::string pointer() const;
    /// Does something with the node of the last step that there is.
    template <class Action>
    void at(const step_t* begin, const step_t* end, Action action) const;

    const value_t* value_;
    json::reading* reading_;
    const node_t* above_ = nullptr;
    std::string_view name_{};
    std::size_t index_ = 0;
};

/// The member of an object; null when it has none of the name, or is no object.
const member_t* find(const value_t& object, std::string_view name);

} // namespace ivra::virtual_platform::json

#endif
