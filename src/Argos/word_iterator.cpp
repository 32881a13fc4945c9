#include "Argos/word_iterator.h"

#include "Argos/parser_data.h"

#include <utility>

namespace argos {

WordIterator::WordIterator(std::vector<std::string_view> words, OptionStyle style)
    : words_{std::move(words)}, style_{style}
{
}

std::optional<Word> WordIterator::next()
{
    value_.reset();
    if (!cluster_.empty()) {
        const std::string flag{'-', cluster_.front()};
        cluster_.remove_prefix(1);
        return Word{flag, true};
    }
    if (position_ == words_.size())
        return std::nullopt;

    current_ = words_[position_++];
    in_cluster_ = false;
    if (only_values_ || current_.size() < 2 || current_.front() != style_flags(style_).prefix)
        return Word{std::string{current_}, false};

    if (style_ == OptionStyle::STANDARD && current_[1] != '-' && current_.size() > 2) {
        in_cluster_ = true;
        cluster_ = current_.substr(2);
        return Word{std::string{current_.substr(0, 2)}, true};
    }
    const std::size_t equals = current_.find('=');
    // In the STANDARD style "-=" is a flag like any other of two characters.
    if (equals == std::string_view::npos || (style_ == OptionStyle::STANDARD && current_[1] != '-'))
        return Word{std::string{current_}, true};
    value_ = current_.substr(equals + 1);
    return Word{std::string{current_.substr(0, equals + 1)}, true};
}

std::optional<std::string> WordIterator::next_value()
{
    if (value_)
        return std::string{*std::exchange(value_, std::nullopt)};
    if (!cluster_.empty())
        return std::string{std::exchange(cluster_, {})};
    if (position_ == words_.size())
        return std::nullopt;
    return std::string{words_[position_++]};
}

std::vector<std::string> WordIterator::remaining() const
{
    std::vector<std::string> words;
    for (std::size_t i = position_; i < words_.size(); ++i)
        words.emplace_back(words_[i]);
    return words;
}

} // namespace argos
