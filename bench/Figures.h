#pragma once

#include <cstdio>
#include <limits>
#include <string>
#include <vector>

namespace glintmark::bench {

/// Prints each figure as it comes, notes the limits that were passed, and keeps all for a file.
/// Names hold nothing that JSON escapes.
class Figures {
public:
    static constexpr double noLimit = std::numeric_limits<double>::infinity();

    explicit Figures(std::string benchmark) : benchmark_(std::move(benchmark)) {}

    void add(const std::string& name, double value, const char* unit, double most = noLimit) {
        std::printf("%-44s %12.3f %s", name.c_str(), value, unit);
        if (most != noLimit) {
            std::printf(value <= most ? "  (at most %g)" : "  OVER %g", most);
        }
        std::printf("\n");
        figures_.push_back({name, value, value <= most});
    }

    bool passed() const {
        for (const auto& figure : figures_) {
            if (!figure.passed) {
                return false;
            }
        }
        return true;
    }

    /// False when the file cannot be written.
    bool write(const char* path) const {
        std::FILE* const file = std::fopen(path, "w");
        if (file == nullptr) {
            return false;
        }
        std::fprintf(file, "{\"benchmark\": \"%s\", \"figures\": {", benchmark_.c_str());
        const char* separator = "";
        for (const auto& figure : figures_) {
            std::fprintf(file, "%s\n  \"%s\": %.6g", separator, figure.name.c_str(), figure.value);
            separator = ",";
        }
        std::fprintf(file, "},\n \"failures\": [");
        separator = "";
        for (const auto& figure : figures_) {
            if (!figure.passed) {
                std::fprintf(file, "%s\"%s\"", separator, figure.name.c_str());
                separator = ", ";
            }
        }
        std::fprintf(file, "]}\n");
        return std::fclose(file) == 0;
    }

private:
    struct Figure {
        std::string name;
        double value;
        bool passed;
    };

    std::string benchmark_;
    std::vector<Figure> figures_;
};

}  // namespace glintmark::bench
