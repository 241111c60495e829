// The installed program (bin/orvane with its files in share/veldor/), told apart from the
// portable one (App/orvane beside Data/) by where the executable stands.
#pragma once
#include <string>

namespace installation {

// "<prefix>/share/veldor/" when the running executable stands in "<prefix>/bin/" and its
// dictionary stands there; empty for the portable layout and for a program in a build tree.
const std::string& shareDirectory();

// The user's settings file of an installed program: when <configDirectory>/veldor.ini is
// missing, the directory is made and the installed template copied into it, so that the
// user has a file to edit. Failures leave the defaults in force and are not fatal.
void seedUserSettings(const std::string& configDirectory);

} // namespace installation
