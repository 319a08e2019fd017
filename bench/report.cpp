// SPDX-License-Identifier: MIT
// report RESULT.json...: prints the medians of Google Benchmark results as a Markdown table, with the ratio
// of ours (variant "hostadm") to each peer and to the floor of the same work and size. See README.md for the
// names.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Figure {
    double seconds = 0;
    std::map<std::string, double> counters;
};

struct Work {
    std::vector<std::string> variants;                       // in order of appearance, ours first
    std::map<double, std::map<std::string, Figure>> by_size; // size 0: the work has no sizes
};

std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

double seconds_per(const std::string &unit) {
    if (unit == "ns")
        return 1e-9;
    if (unit == "us")
        return 1e-6;
    return unit == "ms" ? 1e-3 : 1;
}

bool is_number(const std::string &text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

std::string shown(double seconds) {
    char text[32];
    if (seconds < 1e-6)
        std::snprintf(text, sizeof text, "%.0f ns", seconds * 1e9);
    else if (seconds < 1e-3)
        std::snprintf(text, sizeof text, "%.2f µs", seconds * 1e6);
    else if (seconds < 1)
        std::snprintf(text, sizeof text, "%.2f ms", seconds * 1e3);
    else
        std::snprintf(text, sizeof text, "%.2f s", seconds);
    return text;
}

std::string ratio(double ours, double other) {
    char text[32];
    std::snprintf(text, sizeof text, ours / other < 0.1 ? "%.3f" : "%.2f", ours / other);
    return text;
}

// Google Benchmark writes one entry per repetition and then aggregates; the medians are what is read. A
// single repetition has no aggregates and stands for itself.
void read(const char *path, std::vector<std::string> &order, std::map<std::string, Work> &works) {
    const nlohmann::json result = nlohmann::json::parse(std::ifstream(path));
    bool has_medians = false;
    for (const auto &entry : result.at("benchmarks"))
        has_medians = has_medians || entry.value("aggregate_name", "") == "median";
    for (const auto &entry : result.at("benchmarks")) {
        if (has_medians && entry.value("aggregate_name", "") != "median")
            continue;
        if (entry.value("error_occurred", false)) {
            std::cerr << path << ": " << entry.at("name") << ": " << entry.value("error_message", "failed")
                      << "\n";
            continue;
        }
        const auto parts = split(entry.value("run_name", entry.at("name").get<std::string>()), '/');
        if (parts.size() < 2)
            continue;
        if (works.find(parts[0]) == works.end())
            order.push_back(parts[0]);
        Work &work = works[parts[0]];
        if (std::find(work.variants.begin(), work.variants.end(), parts[1]) == work.variants.end())
            work.variants.insert(parts[1] == "hostadm" ? work.variants.begin() : work.variants.end(),
                                 parts[1]);
        Figure &figure =
            work.by_size[parts.size() > 2 && is_number(parts[2]) ? std::stod(parts[2]) : 0][parts[1]];
        figure.seconds = entry.at("real_time").get<double>() * seconds_per(entry.value("time_unit", "ns"));
        for (const auto &item : entry.items())
            if (item.key().find("_bytes") != std::string::npos && item.value().is_number())
                figure.counters[item.key()] = item.value();
    }
}

void print(const std::string &name, const Work &work) {
    std::cout << "\n### " << name << "\n\n| size |";
    for (const std::string &variant : work.variants)
        std::cout << " " << variant << " |";
    for (const std::string &variant : work.variants)
        if (variant != "hostadm")
            std::cout << " hostadm / " << variant << " |";
    std::cout << "\n|---|";
    for (std::size_t column = 1; column < 2 * work.variants.size(); ++column)
        std::cout << "---|";
    std::cout << "\n";
    for (const auto &[size, figures] : work.by_size) {
        const auto ours = figures.find("hostadm");
        std::cout << "| " << (size == 0 ? std::string("-") : std::to_string(static_cast<long long>(size)))
                  << " |";
        for (const std::string &variant : work.variants) {
            const auto figure = figures.find(variant);
            std::cout << " " << (figure == figures.end() ? "-" : shown(figure->second.seconds)) << " |";
        }
        for (const std::string &variant : work.variants) {
            if (variant == "hostadm")
                continue;
            const auto figure = figures.find(variant);
            const bool both = figure != figures.end() && ours != figures.end();
            std::cout << " " << (both ? ratio(ours->second.seconds, figure->second.seconds) : "-") << " |";
        }
        std::cout << "\n";
    }
    std::vector<std::pair<double, double>> ours;
    for (const auto &[size, figures] : work.by_size)
        if (size > 0 && figures.count("hostadm") != 0)
            ours.emplace_back(size, figures.at("hostadm").seconds);
    if (ours.size() > 1)
        std::printf("\nGrowth exponent from %.0f to %.0f: %.2f.\n", ours.front().first, ours.back().first,
                    std::log(ours.back().second / ours.front().second) /
                        std::log(ours.back().first / ours.front().first));
    std::fflush(stdout);
    for (const auto &[size, figures] : work.by_size)
        for (const auto &[variant, figure] : figures)
            for (const auto &[counter, value] : figure.counters)
                std::printf("\n%s, size %.0f: %s %.0f.\n", variant.c_str(), size, counter.c_str(), value);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv) {
    std::vector<std::string> order;
    std::map<std::string, Work> works;
    for (int i = 1; i < argc; ++i)
        read(argv[i], order, works);
    for (const std::string &name : order)
        print(name, works.at(name));
    return 0;
}
