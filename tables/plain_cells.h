// The cells most tables are made of, read without the general reader: whole numbers and
// intervals of whole numbers as index cells, unsigned decimal numbers as values. Anything else
// (blanks, signs, exponents, variables, expressions, overlong digit runs) is left to the full
// reader, with its messages and line numbers; what is read here is read to the same value.
#pragma once

// "12" or "3..17": at most 18 digits a bound, nothing else in the cell
bool plainIndexCell(const char* cell, long long& lo, long long& hi);
// the same, with the length of the cell's text
bool plainIndexCell(const char* cell, long long& lo, long long& hi, int& length);
// "250", "0.001624": digits, at most one "." with digits after it, nothing else in the cell
bool plainNumberCell(const char* cell, double& value);
