// Settings: the per-user settings file veldor.ini, the variant file, the process-wide
// text settings, named options and the constants table.
#pragma once
#include <map>
#include <string>

namespace si {

// global settings at start, filled by initGlobals
extern std::string programPath;
extern std::string appDir;            // "./App/"
extern std::string release;           // [DEFAULTS] Release of veldor.ini
extern std::string localeName;
extern int kommentar;                 // [CSV] Kommentar
extern int spaltenname;               // [CSV] Spaltenname
extern char decimalPoint;
extern char separator;                // column separator
extern int csvBom;                    // [CSV] BOM
extern int csvAscii;                  // [CSV] ASCII
extern std::string intFormat;         // [CSV] GanzzahlFormat, "_" turned into blanks
extern std::string floatFormat;       // [CSV] GleitkommaFormat
extern int logfile;                   // [TRACE] logfile

// the variant: directory (ends with the caller's separator) and bare name, 8-bit form
extern std::string Directory;
extern std::string Version;

void initGlobals(const char* argv0);
void processDefaults();

// where veldor.ini stands (portable Data/ beside App/, else the user's config directory)
const std::string& dataDirectory();
std::string settingsPath();

// settings file veldor.ini
std::string getString(const char* section, const char* key, const char* def);
int getInt(const char* section, const char* key, int def);

// any profile file, with the semantics of the Windows profile functions
std::string profileString(const std::string& file, const char* section, const char* key, const char* def);
// false when the file could not be written
bool profileWrite(const std::string& file, const char* section, const char* key, const char* value);

// Changes of the file are kept in memory from profileBatch on and written at once by
// profileCommit: one write of the file for any number of keys. profileCommit is false (errno
// set) when that write failed; the file is then as it was before the batch.
void profileBatch(const std::string& file);
bool profileCommit(const std::string& file);
// Drops the changes of the batch: the file stays as it is and is read afresh next time.
void profileAbandon(const std::string& file);
// Puts lines into a section that a profile reader skips: "; note" (when note is not null)
// above ";key=value", so that the text of a removed key is not lost.
bool profileKeepAsComment(const std::string& file, const char* section, const char* key, const char* value,
                          const char* note);
// a number written with "." or "," as decimal point, whatever the locale; 0 for no number
double parseNumber(const std::string& text);

// variant file <dir><ver>.ini
std::string variantPath(const std::string& dir, const std::string& ver);
std::string variantPath();            // of Directory, Version
std::string varString(const char* section, const char* key, const char* def,
                      const std::string& dir, const std::string& ver);
int varInt(const char* section, const char* key, int def, const std::string& dir, const std::string& ver);
double varDouble(const char* section, const char* key, double def, const std::string& dir, const std::string& ver);
bool varWrite(const char* section, const char* key, const char* value,
              const std::string& dir, const std::string& ver);

} // namespace si

// named options of the expression language ($ODE, $STACK, ...)
namespace opt {
std::map<std::string, double>& all();
void set(const std::string& name, double value);
bool has(const std::string& name);
double get(const std::string& name, double def);
// the trace forms write "<code>!option(%s %g)</code>" at protocol level 2 when the option exists
double getTrace(const std::string& name, double def);
int getIntTrace(const std::string& name, int def);
void clear();
} // namespace opt

