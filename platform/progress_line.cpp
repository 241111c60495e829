#include "platform/progress_line.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace progress {

namespace {

bool g_terminal = false;
bool g_shown = false;
int g_total = 0;
std::string g_text;
std::string g_format;
std::chrono::steady_clock::time_point g_start;

std::string duration(double seconds)
{
    long s = static_cast<long>(seconds + 0.5);
    char b[32];
    if (s < 60) snprintf(b, sizeof b, "%ld s", s);
    else if (s < 3600) snprintf(b, sizeof b, "%ld:%02ld min", s / 60, s % 60);
    else snprintf(b, sizeof b, "%ld:%02ld h", s / 3600, s / 60 % 60);
    return b;
}

void draw()
{
    // back to the line's start, the text, the rest of the line cleared
    printf("\r%s\033[K", g_text.c_str());
    fflush(stdout);
    g_shown = true;
}

} // namespace

void start(int total, const std::string& text)
{
    g_format = text;
    g_terminal = isatty(STDOUT_FILENO) != 0;
    g_total = total;
    g_shown = false;
    g_text.clear();
    g_start = std::chrono::steady_clock::now();
}

void step(int k, int label)
{
    if (!g_terminal || g_total <= 0) return;
    double gone = std::chrono::duration<double>(std::chrono::steady_clock::now() - g_start).count();
    // the time left from the mean time of the steps done
    std::string left = k > 1 ? duration(gone / (k - 1) * (g_total - k + 1)) : "?";
    char b[512];
    snprintf(b, sizeof b, g_format.c_str(), k, g_total, label, duration(gone).c_str(), left.c_str());
    g_text = b;
    draw();
}

void finish()
{
    if (g_shown) {
        printf("\r\033[K");
        fflush(stdout);
    }
    g_shown = false;
    g_terminal = false;
    g_text.clear();
}

bool makeRoom()
{
    if (!g_shown) return false;
    printf("\r\033[K");
    g_shown = false;
    return true;
}

void redraw()
{
    if (g_terminal && !g_text.empty()) draw();
}

} // namespace progress
