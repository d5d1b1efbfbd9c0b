#pragma once

#include <functional>
#include <string>
#include <vector>

// A group of figures; each prints lines "name value unit".
struct BenchGroup {
    std::string name;
    std::function<void()> run;
};

std::vector<BenchGroup>& benchGroups();

// Registers a group at start-up: static BenchRegistrar r("table", &runTableBench);
struct BenchRegistrar {
    BenchRegistrar(const std::string& name, std::function<void()> run);
};

// Prints one figure.
void benchReport(const std::string& name, double value, const std::string& unit);

// How long a timed figure runs: --seconds N on the command line, else its own default.
double benchSeconds(double defaultSeconds);
void setBenchSeconds(double seconds);

// Resident set size of this process in MiB.
double benchRssMb();
