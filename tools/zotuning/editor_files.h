/// \file
/// Files that belong to an editor, with some entries of ours: merged, never replaced.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "console.h"

namespace zotuning::tool {

/// Puts entries into the list at `list_key` of a JSON text that may contain comments. An entry with the same value at
/// `id_key` is replaced, others are appended; the list is created if there is none. Everything else stays byte for
/// byte. Nothing, with the reason in `why`, if the text is not an object, or the list is not a list.
std::optional<std::string> MergeEntries(const std::string& text, const std::string& list_key, const std::string& id_key,
                                        const std::vector<Json>& entries, std::string* why);

}  // namespace zotuning::tool
