// What a failed forecast run tells its user on standard error, beside the protocol.
#pragma once
#include <string>

// What the command line said about the variant, for the hints on a variant file that is missing.
struct VariantRequest {
    bool directoryGiven = false;   // -d
    bool versionGiven = false;     // -v
};

// why <Directory><Version>.ini was not found: the path looked at and the likely slip of the
// command line (a -d without the separator at its end, a -v without -d), the variant files that are there
void tellMissingVariant(const VariantRequest& request);
// a variant file that was found but holds an invalid value
void tellInvalidVariant();
// the end of a run with a status other than 0, and where its protocol is
void tellFailedRun(int status);
// the result directory belongs to another running process (holder), or cannot be locked
void tellBusyDirectory(const std::string& directory, const std::string& holder, const std::string& errorText);
