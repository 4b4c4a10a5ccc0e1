#pragma once

#include <string_view>

/// What the name of a hash, of a column or of a field says about the value that it stands for.
enum class HashLabel
{
    /// Nothing about hashes.
    None,
    /// MD5, SHA-1 or SHA-256 of a file, in any of the spellings ("SHA-256", "file_hash_sha256").
    FileHash,
    /// An indicator of any kind, among others hashes ("hash", "indicator", "value").
    Indicator,
    /// What kind the indicator in another column is of ("type").
    Type,
    /// A number that may look like a hash of a file and is none: a hash of another function, of a part of a
    /// file, of a certificate or a connection, or the hash of the parent, which is mostly a sound program.
    Other
};

/// Letters and digits of the name decide, in either case. Pure.
HashLabel hashLabelOf(std::string_view name);
