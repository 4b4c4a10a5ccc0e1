#pragma once

#include "tvctl/hashlists/hashlabel.h"
#include "tvctl/hashlists/hashlistparser.h"

#include <string>
#include <vector>

class CsvReader;

/// Tables of delimited text.
///
/// The first row, or a comment above it, may name the columns. Then the columns of hashes are read, and where
/// there are none of them, columns of indicators of any kind. A table whose names tell nothing, or that has
/// none, is read by content: each cell that is a hash as a whole, except in columns of other numbers.
class CsvParser : public HashListParser
{
public:
    QString parse(HashListInput& input, HashListSink& sink) override;

private:
    bool readHeader(const CsvReader& reader);
    void readRow(const CsvReader& reader, HashListSink& sink) const;
    bool isOtherType(const std::vector<std::string>& cells) const;
    HashLabel labelOf(std::size_t column) const;

    /// Empty while no header was seen.
    std::vector<HashLabel> m_labels;
    /// The label of the columns to read; None when the content decides.
    HashLabel m_read = HashLabel::None;
};
