// The constants table constant.csv of the application directory: defaults and limits that the
// installation gives, read as a two-column semicolon table.
#pragma once
#include <map>
#include <string>

namespace konst {
// 0, or the error number of the failed read
int read();
bool has(const std::string& key);
std::string text(const std::string& key);
double number(const std::string& key);
int integer(const std::string& key);
void set(const std::string& key, const std::string& value);
void set(const std::string& key, double value);
std::map<std::string, std::string>& all();
} // namespace konst
