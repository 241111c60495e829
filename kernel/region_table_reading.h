// Reading the kernel's region tables: the compact 4-level form (region, BG, GG, AG; dense or
// sparse storage) and the sparse 5-level list of the flows, through the generic input reader.
#pragma once
#include <cstdint>
#include <vector>

#include "kernel/sparse_tables.h"
#include "tables/input_reader.h"

// read cell by cell like a dense array, doubles and unassigned cells reported, unassigned cells 0
ReadResult readTable(FileEntry& file, GemTable& target, const char* names, int valueCheck = 0);
// sparse 4-level: every value is collected and added to the target after the read
ReadResult readTableAdd(FileEntry& file, GemTable& target, const char* names, int valueCheck = 0);
// sparse 5-level: the values are added into the list (sorted, equal tuples summed)
ReadResult readTableAdd(FileEntry& file, FBList& target, const long long sizes[5], const char* names,
                        int valueCheck = 0);

// A cell of a sparse 4-level read: key as GemKey (region position, BG, GG, AG; 0-based), value.
struct GemCell {
    uint64_t key;
    double value;
};
// sparse 4-level into a list, for a caller that chooses the storage afterwards (the start
// population under cut); sizes as for readTable, -1 for a column not checked
ReadResult readTableList(FileEntry& file, std::vector<GemCell>& cells, const long long sizes[4], const char* names,
                         int valueCheck = 0);
