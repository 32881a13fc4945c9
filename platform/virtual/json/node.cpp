#include "json/node.h"

#include "json/text.h"

#include <algorithm>
#include <system_error>

namespace ivra::virtual_platform::json {

void reading::note(std::size_t place, const std::string& pointer, std::string_view what)
{
    if (!is_beyond_mistake(place))
        mistake_ = note_t{place, pointer, std::string{what}};
}

void reading::reword(std::size_t place, const std::string& from, const std::string& to)
{
    if (mistake_ && mistake_->place == place && mistake_->what == from)
        mistake_->what = to;
}

void reading::finish() const
{
    if (mistake_)
        mistake(file_, mistake_->pointer, mistake_->what);
}

void reading::remark(std::size_t place, const std::string& pointer, std::string_view what)
{
    if (wanted_ == remarks_t::wanted)
        remarks_.push_back({place, pointer, std::string{what}});
}

std::vector<std::string> reading::remark_texts() const
{
    std::vector<std::string> texts;
    for (const note_t& remark : remarks_)
        texts.push_back(remark.what);
    return texts;
}

std::vector<std::string> reading::remarks() const
{
    std::vector<note_t> sorted = remarks_;
    std::ranges::stable_sort(sorted, {}, &note_t::place);
    std::vector<std::string> lines;
    for (const note_t& remark : sorted)
        lines.push_back(told(file_, remark.pointer, remark.what));
    return lines;
}

std::optional<std::filesystem::path> reading::find(const std::filesystem::path& name) const
{
    std::error_code ignored;
    for (const std::filesystem::path& folder : folders_)
        if (std::filesystem::exists(std::filesystem::symlink_status(folder / name, ignored)))
            return folder / name;
    return std::nullopt;
}

std::string reading::open(const std::filesystem::path& path)
{
    std::string text = read_file(path);
    opened_ += '\n' + std::to_string(text.size()) + ' ' + hex_text(hash(text));
    return text;
}

std::string node_t::pointer() const
{
    if (above_ == nullptr)
        return "";
    const bool is_element = above_->as<list_t>() != nullptr;
    return above_->pointer() + '/' + (is_element ? std::to_string(index_) : pointer_token(name_));
}

void node_t::expected_at(std::initializer_list<step_t> path, std::string_view what) const
{
    at(path.begin(), path.end(), [what](const node_t& node) { node.expected(what); });
}

void node_t::remark_at(std::initializer_list<step_t> path, std::string_view what) const
{
    at(path.begin(), path.end(), [what](const node_t& node) { node.remark(what); });
}

template <class Action>
void node_t::at(const step_t* begin, const step_t* end, Action action) const
{
    const auto* list = as<list_t>();
    const member_t* member = begin == end ? nullptr : find(*value_, begin->name);
    if (member != nullptr)
        below(*member).at(begin + 1, end, action);
    else if (begin != end && list != nullptr && begin->index < list->size())
        below(*list, begin->index).at(begin + 1, end, action);
    else
        action(*this);
}

const value_t& node_t::value_at(std::initializer_list<step_t> path) const
{
    static const value_t nothing;
    const value_t* value = value_;
    for (const step_t& step : path) {
        const auto* list = value->as<list_t>();
        const member_t* member = find(*value, step.name);
        if (member != nullptr)
            value = &member->value;
        else if (list != nullptr && step.index < list->size())
            value = &(*list)[step.index];
        else
            return nothing;
    }
    return *value;
}

const member_t* find(const value_t& object, std::string_view name)
{
    const auto* members = object.as<object_t>();
    if (members == nullptr)
        return nullptr;
    const auto found = std::ranges::find(*members, name, &member_t::name);
    return found == members->end() ? nullptr : &*found;
}

} // namespace ivra::virtual_platform::json
