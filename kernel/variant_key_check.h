// Slips in a variant file that the repair cannot see by itself: a key misspelt in a section the
// program reads, and a number with text behind it that the settings reader silently cuts off.
#pragma once
#include <string>
#include <vector>

// the number of edits (insert, delete, replace, swap of neighbours) between two keys, ignoring case
size_t keyDistance(const std::string& a, const std::string& b);

// the known key that key was most likely meant to be, or "" when none is close enough
std::string closestKey(const std::string& key, const std::vector<std::string>& known);

// whether the text is a whole integer, or a whole number (with "." or ","), blanks around allowed
bool wholeInteger(const std::string& text);
bool wholeNumber(const std::string& text);
