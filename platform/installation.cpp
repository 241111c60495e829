#include "platform/installation.h"

#include <filesystem>
#include <system_error>

#ifndef VELDOR_INSTALL_SHARE
#define VELDOR_INSTALL_SHARE "share/veldor"
#endif

namespace installation {

namespace fs = std::filesystem;

const std::string& shareDirectory()
{
    static const std::string directory = [] {
        std::error_code ec;
        fs::path exe = fs::read_symlink("/proc/self/exe", ec);
        if (ec || exe.empty()) return std::string();
        fs::path bin = exe.parent_path();
        if (bin.filename() != "bin") return std::string();
        fs::path share = bin.parent_path() / VELDOR_INSTALL_SHARE;
        if (!fs::is_regular_file(share / "datadict_de.xml", ec)) return std::string();
        return share.string() + "/";
    }();
    return directory;
}

void seedUserSettings(const std::string& configDirectory)
{
    const std::string& share = shareDirectory();
    if (share.empty() || configDirectory.empty()) return;
    std::error_code ec;
    fs::path target = fs::path(configDirectory) / "veldor.ini";
    if (fs::exists(target, ec)) return;
    fs::create_directories(configDirectory, ec);
    if (ec) return;
    fs::copy_file(fs::path(share) / "veldor.ini", target, ec);
}

} // namespace installation
