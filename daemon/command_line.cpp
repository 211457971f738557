#include "daemon/command_line.h"

#include <dirent.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>

#include "catalogue/user_msg_dir.h"
#include "records/wardend_log.h"

namespace vesk::wardend {

namespace {

// The trailing blanks are part of the texts.
const char* const kShortUsage[] = {
    "Usage: wardend [-p] [.msg path]           ",
    "",
    "Options:                                    ",
    "    -p,   set an additional .msg files path ",
};
const char* const kLongUsage[] = {
    "wardend is a daemon for providing CM maintenance services.",
    "",
    "Options:                                                    ",
    "    -p,   set an additional .msg files path                 ",
};

// Standard output through stdio: std::cout would build the C++ locale for a few lines.
void PrintLines(const char* const* lines, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        std::printf("%s\n", lines[i]);
    }
    std::fflush(stdout);
}

// Writes a failure that a person must read.
void PrintError(const String& text) {
    std::fputs("[ERROR]: ", stdout);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

bool IsAllowedPathByte(unsigned char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' || byte == '[' ||
           byte == ']' || byte == '/';
}

[[noreturn]] void ExitWithError(const String& text) {
    LogError() << text;
    std::exit(1);
}

}  // namespace

void PrintShortUsage() {
    PrintLines(kShortUsage, sizeof(kShortUsage) / sizeof(kShortUsage[0]));
}

void PrintLongUsage() {
    PrintLines(kLongUsage, sizeof(kLongUsage) / sizeof(kLongUsage[0]));
}

bool CheckSingleInstance() {
    const String command = "pidof wardend | wc -w";

    struct utsname system {};
    if (uname(&system) != 0) {
        LogWarn() << "sys/uname result is wrong";
    } else {
        LogVerbose() << "Wardend in " << system.sysname;
    }

    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        // Without a shell the count cannot be had; starting anyway is the deliberate choice.
        return true;
    }

    char count[5] = {};
    if (fgets(count, 4, pipe) == nullptr) {
        LogError() << "pidof cmdline fgets result is wrong";
        if (pclose(pipe) != 0) {
            LogWarn() << "pidof cmdline pclose failed";
        }
        return false;
    }
    if (pclose(pipe) != 0) {
        LogWarn() << "pidof cmdline pclose failed";
    }

    // Only the first character counts, so a count of 10 or more passes as well.
    if (count[0] == '1') {
        return true;
    }
    LogError() << "Wardend process is running already";
    PrintError("Wardend process is running already");
    return false;
}

std::optional<int> ParseOptions(int argc, const char* const argv[]) {
    if (argc <= 1) {
        return std::nullopt;
    }
    const String option = argv[1];
    if (option != "-p") {
        LogError() << "Wardend unknown option: '" << option << "'";
        PrintError("Unknown Option: '" + option + "'");
        PrintLongUsage();
        return 1;
    }
    if (argc == 2) {
        LogError() << "Wardend user must specify a .msg path";
        PrintError("User must specify a .msg path");
        PrintShortUsage();
        return 1;
    }
    if (argc > 3) {
        LogError() << "Wardend user may only specify one .msg path";
        PrintError("User may only specify one .msg path");
        PrintShortUsage();
        return 1;
    }
    const String path = argv[2];
    LogInfo() << "Wardend set .msg path to " << path;
    SetUserMsgPath(path);
    return std::nullopt;
}

void SetUserMsgPath(const String& path) {
    if (path.empty() || path[0] != '/') {
        ExitWithError("Msg file path name must start with /, otherwise wardend will exit");
    }
    for (const char byte : path) {
        if (!IsAllowedPathByte(static_cast<unsigned char>(byte))) {
            ExitWithError(
                "Msg file path name must be a string of a-z, 0-9, A-Z, -, _, [, ], /, otherwise "
                "wardend will exit");
        }
    }
    DIR* dir = opendir(path.c_str());
    if (dir == nullptr) {
        ExitWithError("Msg file path " + path + " unexisted, so wardend exits");
    }
    if (closedir(dir) != 0) {
        ExitWithError("Wardend close dir " + path + " is wrong");
    }
    userMsgDir = path;
    if (userMsgDir.back() != '/') {
        userMsgDir += '/';
    }
    LogInfo() << "User set msg file path to " << userMsgDir;
}

}  // namespace vesk::wardend
