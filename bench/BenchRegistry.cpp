#include "BenchRegistry.h"

#include <cstdio>
#include <fstream>
#include <string>

std::vector<BenchGroup>& benchGroups() {
    static std::vector<BenchGroup> groups;
    return groups;
}

BenchRegistrar::BenchRegistrar(const std::string& name, std::function<void()> run) {
    benchGroups().push_back({name, std::move(run)});
}

void benchReport(const std::string& name, double value, const std::string& unit) {
    std::printf("%s %.2f %s\n", name.c_str(), value, unit.c_str());
    std::fflush(stdout);
}

namespace {
double g_seconds = 0;
}

double benchSeconds(double defaultSeconds) {
    return g_seconds > 0 ? g_seconds : defaultSeconds;
}

void setBenchSeconds(double seconds) {
    g_seconds = seconds;
}

double benchRssMb() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stod(line.substr(6)) / 1024.0;
    }
    return 0.0;
}
