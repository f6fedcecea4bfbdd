/// \file
/// Files that belong to an editor, of which some entries are ours: merged, never replaced.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "console.h"

namespace zotuning::tool {

/// Puts entries into the list at `list_key` of a JSON text that may hold comments. An entry that has the same value at
/// `id_key` is replaced, others are appended; the list is made where there is none. Everything else stays byte for
/// byte. Nothing, and `why` it cannot be, when the text is no object, or the list none.
std::optional<std::string> MergeEntries(const std::string& text, const std::string& list_key, const std::string& id_key,
                                        const std::vector<Json>& entries, std::string* why);

}  // namespace zotuning::tool
