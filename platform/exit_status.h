// The process exit status: every tool writes it, main returns it.
#pragma once

extern int exitStatus;
