#ifndef IVRA_ARGOS_ARGUMENT_ITERATOR_H
#define IVRA_ARGOS_ARGUMENT_ITERATOR_H

#include "Argos/flag_table.h"
#include "Argos/parsed_arguments.h"
#include "Argos/parser_data.h"
#include "Argos/word_iterator.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace argos {

/// Walks over the words of a command line and makes the result, one flag or value a step.
class ArgumentIterator
{
public:
    /// Throws ArgosException when the definitions contradict each other.
    ArgumentIterator(std::vector<std::string_view> words, std::shared_ptr<const ParserData> data);

    /// Takes one step; false when parsing has ended. Throws ArgosException when it has already ended with an error.
    bool next();

    const ParseResult& result() const { return result_; }

private:
    void process_option(const std::string& flag);
    void process_argument(const std::string& word);
    void check_counts();
    void stop(ResultCode code);
    void fail(const std::string& message);

    std::shared_ptr<const ParserData> data_;
    FlagTable flags_;
    WordIterator words_;
    ParseResult result_;
    std::size_t argument_ = 0;     // the argument that takes the next value
    unsigned argument_values_ = 0; // how many it has
    std::size_t all_argument_values_ = 0;
};

} // namespace argos

#endif
