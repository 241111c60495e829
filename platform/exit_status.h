// The process exit status: every tool writes it, main returns it.
#pragma once

extern int exitStatus;

// for tools that are not part of this build yet: says so and leaves status 1
void notBuilt(const char* tool);
