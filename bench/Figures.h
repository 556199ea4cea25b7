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

/// What the benchmarks share: their options, the processor's time, and keeping figures.
namespace glintmark::bench {

using Milliseconds = std::chrono::duration<double, std::milli>;

/// `--json FILE`, where the figures go; `--smoke`, a short run whose limits do not count; the rest.
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

    /// The first of the rest as a number, where it is given.
    int count(int usual) const { return rest.empty() ? usual : std::atoi(rest[0].c_str()); }

    /// The second of the rest, a folder; the system's for temporary files where it is not given.
    std::filesystem::path place() const {
        return rest.size() > 1 ? std::filesystem::path(rest[1])
                               : std::filesystem::temp_directory_path();
    }

    const char* json = nullptr;
    bool smoke = false;
    std::vector<std::string> rest;
};

/// Of this process, or with `CLOCK_THREAD_CPUTIME_ID` of this thread alone.
inline Milliseconds processorTime(clockid_t clock = CLOCK_PROCESS_CPUTIME_ID) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The value below which `share` of all lie.
template <typename Value>
Value quantile(std::vector<Value> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size()))];
}

template <typename Value>
Value median(std::vector<Value> values) {
    return quantile(std::move(values), 0.5);
}

/// Prints each figure as it comes, notes the limits that were passed, and keeps all for a file.
/// Texts hold nothing that JSON escapes.
class Figures {
public:
    static constexpr double noLimit = std::numeric_limits<double>::infinity();

    struct Figure {
        std::string what;
        double value = 0;
        std::string unit = {};
        double most = noLimit;
        std::string of = "glintmark";  ///< Whose figure it is.
        std::string at = {};           ///< The case, where there are several.
    };

    void add(const Figure& figure) {
        const std::string name = (figure.at.empty() ? "" : figure.at + ": ") + figure.what;
        std::printf("%-12s %-52s %12.3f %s", figure.of.c_str(), name.c_str(), figure.value,
                    figure.unit.c_str());
        if (figure.most != noLimit) {
            std::printf(figure.value <= figure.most ? "  (at most %g)" : "  OVER %g", figure.most);
        }
        std::printf("\n");
        std::fflush(stdout);
        figures_.push_back(figure);
    }

    /// Writes the figures where the options say; the status to end with.
    int finish(const Options& options) const {
        if (options.json != nullptr && !write(options.json)) {
            std::perror(options.json);
            return EXIT_FAILURE;
        }
        const bool held = std::all_of(figures_.begin(), figures_.end(),
                                      [](const Figure& f) { return f.value <= f.most; });
        return held || options.smoke ? EXIT_SUCCESS : EXIT_FAILURE;
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
                         "\"unit\": \"%s\", \"most\": ",
                         separator, figure.what.c_str(), figure.of.c_str(), figure.at.c_str(),
                         figure.value, figure.unit.c_str());
            std::fprintf(file, figure.most == noLimit ? "null}" : "%g}", figure.most);
            separator = ",";
        }
        std::fprintf(file, "\n]\n");
        return std::fclose(file) == 0;
    }

    std::vector<Figure> figures_;
};

}  // namespace glintmark::bench
