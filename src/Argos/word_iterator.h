#ifndef IVRA_ARGOS_WORD_ITERATOR_H
#define IVRA_ARGOS_WORD_ITERATOR_H

#include "Argos/definitions.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace argos {

/// What the command line holds next: a flag to look up, or a value.
struct Word
{
    std::string text;
    bool is_option;
};

/// Splits the words of a command line into flags and values, by style. The words must outlive it.
class WordIterator
{
public:
    WordIterator(std::vector<std::string_view> words, OptionStyle style);

    /// The next flag or value: "--name=" of "--name=value"; "-a", then "-b" of "-ab"; any other word whole. What is
    /// left of "=value" is dropped. Empty at the end.
    std::optional<Word> next();

    /// The value of the flag just read: what follows its "=", or the rest of its cluster, or else the whole next word
    /// whatever it looks like. Empty at the end.
    std::optional<std::string> next_value();

    /// From the next word on, every word is a value. What is left of the current cluster still holds flags.
    void take_words_as_values() { only_values_ = true; }

    /// The whole word that next() read from last.
    std::string_view current() const { return current_; }

    /// Whether that word is a cluster ("-abc").
    bool in_cluster() const { return in_cluster_; }

    /// The words that have not been touched.
    std::vector<std::string> remaining() const;

private:
    std::vector<std::string_view> words_;
    OptionStyle style_;
    std::size_t position_ = 0;
    bool only_values_ = false;
    std::string_view current_;
    bool in_cluster_ = false;
    std::string_view cluster_;              // flags of the current word that are still to come
    std::optional<std::string_view> value_; // what follows the "=" of the current word
};

} // namespace argos

#endif
