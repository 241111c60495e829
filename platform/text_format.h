// printf into a string, of whatever length the text needs.
#pragma once
#include <cstdarg>
#include <string>

std::string vformat(const char* format, va_list args);
std::string format(const char* format, ...) __attribute__((format(printf, 1, 2)));
