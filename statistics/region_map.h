// The map from the small-area fields of a record (R02, R02U2) to a region key, and the
// table G2T of region keys and region types read from a reference file.
#pragma once
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace r02map {
// empty; one or two characters, a digit below 9 and then 'e' or 'i'; or "#" followed by
// position digits '1'..'8' (each at most once) and 'e', 'i', at most 9 characters in all
bool valid(const std::string& map);
// how many digits the map puts into a key
int digits(const std::string& map);
// The key of a record: r02 holds the 7 characters of R02 (a short text counts as blanks),
// u2 the character of R02U2, e and i the digits the map's 'e' and 'i' take. A blank
// counts as 0, or as 9 in the appended digit of a two-character map. -1 when a selected
// character is neither digit nor blank.
long long key(const std::string& map, std::string_view r02, char u2, char e = ' ', char i = ' ');
} // namespace r02map

// ascending pairs of region key and type number
class G2T {
public:
    std::vector<std::pair<long long, int>> pairs;
    int maxType = 0;
    int error = 0;   // 0 or a code of errorText
    int line = 0;    // line of the reference file where the error stands

    static const char* errorText(int code);
    // Empty map or "0": one region of type 1. Without a reference file every key the map
    // can give is its own region and type. Otherwise the reference file: key in column 0,
    // type in column typeColumn, or the running row number when typeColumn is 0.
    void build(const std::string& map, bool withFile, const std::string& path, int typeColumn);
    // the region index of a key, -1 when there is none
    int region(long long key) const;
    int regions() const { return static_cast<int>(pairs.size()); }
};
