#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

/// Shared by the benchmarks: options, processor time, and figures.
namespace glintmark::bench {

using Milliseconds = std::chrono::duration<double, std::milli>;

/// `--json FILE` also writes the figures to FILE. `--smoke` makes a short run, whose limits do not
/// count.
struct Options {
    Options(int argc, char** argv) {
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], "--smoke") == 0) {
                smoke = true;
            } else if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc) {
                json = argv[++i];
            } else {
                rest.emplace_back(argv[i]);
            }
        }
    }

    /// The first of `rest` as a number, or `byDefault` if it is not given.
    int count(int byDefault) const { return rest.empty() ? byDefault : std::atoi(rest[0].c_str()); }

    /// The second of `rest`, a folder, or the folder for temporary files if it is not given.
    std::filesystem::path place() const {
        return rest.size() > 1 ? std::filesystem::path(rest[1])
                               : std::filesystem::temp_directory_path();
    }

    const char* json = nullptr;
    bool smoke = false;
    std::vector<std::string> rest;
};

/// Of this process; with `CLOCK_THREAD_CPUTIME_ID` of this thread only.
inline Milliseconds processorTime(clockid_t clock = CLOCK_PROCESS_CPUTIME_ID) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The value below which a part of all values is: `share`, from 0 to 1.
template <typename Value>
Value quantile(std::vector<Value> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size()))];
}

template <typename Value>
Value median(std::vector<Value> values) {
    return quantile(std::move(values), 0.5);
}

/// Prints each figure at once, checks its limit, and keeps all figures for a file. Texts must need
/// no JSON escapes.
class Figures {
public:
    static constexpr double noLimit = std::numeric_limits<double>::infinity();

    struct Figure {
        std::string what;
        double value = 0;
        std::string unit = {};
        double maximum = noLimit;
        std::string of = "glintmark";  ///< The program or peer that was measured.
        std::string at = {};           ///< The case, if there are several.
    };

    void add(const Figure& figure) {
        const std::string name = (figure.at.empty() ? "" : figure.at + ": ") + figure.what;
        std::printf("%-12s %-52s %12.3f %s", figure.of.c_str(), name.c_str(), figure.value,
                    figure.unit.c_str());
        if (figure.maximum != noLimit) {
            std::printf(figure.value <= figure.maximum ? "  (at most %g)" : "  OVER %g",
                        figure.maximum);
        }
        std::printf("\n");
        std::fflush(stdout);
        figures_.push_back(figure);
    }

    /// Writes the file that the options name. Returns the exit status.
    int finish(const Options& options) const {
        if (options.json != nullptr && !write(options.json)) {
            std::perror(options.json);
            return EXIT_FAILURE;
        }
        const bool withinLimits = std::all_of(figures_.begin(), figures_.end(),
                                              [](const Figure& f) { return f.value <= f.maximum; });
        return withinLimits || options.smoke ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    bool write(const char* path) const {
        std::FILE* const file = std::fopen(path, "w");
        if (file == nullptr) {
            return false;
        }
        const char* separator = "[";
        for (const Figure& figure : figures_) {
            std::fprintf(file,
                         "%s\n {\"what\": \"%s\", \"of\": \"%s\", \"at\": \"%s\", \"value\": %.6g, "
                         "\"unit\": \"%s\", \"maximum\": ",
                         separator, figure.what.c_str(), figure.of.c_str(), figure.at.c_str(),
                         figure.value, figure.unit.c_str());
            std::fprintf(file, figure.maximum == noLimit ? "null}" : "%g}", figure.maximum);
            separator = ",";
        }
        std::fprintf(file, "\n]\n");
        return std::fclose(file) == 0;
    }

    std::vector<Figure> figures_;
};

}  // namespace glintmark::bench
