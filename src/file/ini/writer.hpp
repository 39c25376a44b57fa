// writer.hpp: from a tree to the text of a file. An engine without I/O.
#pragma once

#include <string>

#include "file/ini/tree.hpp"

// The file's text. Read and written again, it is the same.
std::string Tq4_config_written(const Tq4_config_tree &tree);

// Whether a file can hold a section's name, under the root or not; a key; a value of an item (null: a new one).
bool Tq4_config_can_hold_name(std::string_view name, bool under_root);
bool Tq4_config_can_hold_key(std::string_view key);
bool Tq4_config_can_hold_value(std::string_view key, std::string_view value, const Tq4_config_item *item);
// Whether a value is read back as it is only when it is written in quotes.
bool Tq4_config_needs_quotes(std::string_view value);
