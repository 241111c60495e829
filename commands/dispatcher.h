// The tool table of the executable: the first argument names the tool, which gets the command
// line behind its own name and leaves the process exit status.
#pragma once

// runs the tool named by argv[1]; an unknown name shows the list of tools. The exit status.
int dispatch(int argc, char** argv);
