#ifndef IVRA_ARGOS_FLAG_TABLE_H
#define IVRA_ARGOS_FLAG_TABLE_H

#include "Argos/parser_data.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace argos {

/// Every flag of every option, sorted.
class FlagTable
{
public:
    /// Throws ArgosException when two flags are the same.
    explicit FlagTable(const ParserData& data);

    /// The option that a word of the command line means, by the parser's rules of case and abbreviation; null if none.
    /// "--name=" also finds "--name" when that takes an argument.
    std::shared_ptr<const OptionData> find(std::string_view word) const;

private:
    struct Row
    {
        std::string key;       // the flag as it is compared
        std::string_view flag; // one of the option's
        std::shared_ptr<const OptionData> option;
    };

    std::shared_ptr<const OptionData> find_flag(std::string_view word) const;

    const ParserData& data_;
    std::vector<Row> rows_;
};

} // namespace argos

#endif
