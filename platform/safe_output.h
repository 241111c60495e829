// Output files that are never left half written. The text goes to a temporary file in the
// directory of the target; when it is complete it is flushed, synced, closed with the result
// checked and renamed over the target. A failure leaves the target as it was.
#pragma once
#include <cstdio>
#include <functional>
#include <string>

namespace safeOutput {

// Opens path for writing through a temporary file beside it. With append the file is moved
// aside to the temporary, written at its end and put back by commit; a failure cuts it back to
// its former length and puts it back, a killed process leaves it under the hidden name. keepOnAbort marks a stream (a protocol page) that is still
// put into place when the process ends on a fatal output error; the others are dropped then.
// nullptr with errno set when it cannot be opened.
FILE* open(const std::string& path, bool append = false, bool keepOnAbort = false);
// true when f came from open and is not closed yet
bool owns(FILE* f);
// the file a stream will become; empty for a stream that is not ours
std::string target(FILE* f);
// the file the stream writes into now: the temporary (for an append the target moved aside)
std::string writingPath(FILE* f);

// Flushes, syncs, closes and renames into place. 0, or the error number of the step that
// failed; the temporary is removed then and the target is untouched.
int commit(FILE* f);
// Closes and removes the temporary (or cuts the appended part off): the target stays as it was.
void discard(FILE* f);
// A complete output (ok) committed, a failed one discarded; false when it failed or could not be
// put into place, then with "<path>: <the system's reason>" in error for the latter.
bool finish(FILE* f, bool ok, const std::string& path, std::string& error);
// commit, and on failure the fatal output error. A stream that is not ours is closed with
// fclose, checked the same way.
void close(FILE* f);

// The fatal output error of a stream: the box "Fatal output error in csv" with the path and
// the cause, the temporaries of all open outputs removed (protocol pages kept), exit status 1.
[[noreturn]] void fatal(FILE* f, int err);
[[noreturn]] void fatalPath(const std::string& path, int err);

// Called once by the fatal output error before the process ends (the kernel undoes its year,
// a tool's protocol takes the failure).
void setAbortHook(std::function<void()> hook);
// the failure of the fatal output error under way, "<path>: <cause>" (empty before one)
std::string fatalText();

// Writes the whole text to path through a temporary. 0 or the error number.
int writeFile(const std::string& path, const std::string& data);

// The fault-injecting write layer of the tests: once more than limit bytes have gone to
// outputs opened from now on, every further write fails with "No space left on device".
// A negative limit switches it off. The environment variable VELDOR_WRITE_LIMIT sets it for
// a whole process.
void setWriteLimit(long long limit);

// Discards every open append: each table of all years is put back under its name as it was
// when it was opened (for a year that failed).
void dropAppends();

// Commits every open output that is marked keepOnAbort and drops the others; for the end of
// a run that did not close its protocol.
void finishAll();

} // namespace safeOutput
