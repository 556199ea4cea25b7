// What the sandbox costs: decoding a 256-pixel PNG and scaling it to 512 pixels, in the sandbox and
// in the calling process. Prints the median and the 99th percentile of each. Fails when the
// sandboxed median is above 4 ms or the percentile above 15 ms.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/ImageScaling.h"
#include "platform/linux/images/SandboxedImageDecoder.h"
#include "tests/doubles/InProcessImageDecoder.h"

namespace glintmark {
namespace {

constexpr double maximumMedian = 4;  // in milliseconds, as the next
constexpr double maximumPercentile = 15;
constexpr int samples = 1000;
constexpr int iconSize = 512;

std::string icon() {
    std::ifstream file(GLINTMARK_TEST_DATA "/images/icon-256.png", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

double percentile99(const std::vector<double>& times) {
    std::vector<double> sorted = times;
    std::ranges::sort(sorted);
    return sorted[sorted.size() * 99 / 100];
}

void decodeAndScale(benchmark::State& state, platform::ImageDecoder& decoder) {
    const std::string data = icon();
    for (auto _ : state) {
        const auto image = decoder.decode(data);
        if (!image) return state.SkipWithError("the icon does not decode");
        benchmark::DoNotOptimize(platform::scaled(*image->bitmap(), iconSize, iconSize));
    }
}

void sandboxed(benchmark::State& state) {
    static platform::SandboxedImageDecoder decoder(GLINTMARK_IMAGE_DECODER);
    decodeAndScale(state, decoder);
}

void inProcess(benchmark::State& state) {
    static doubles::InProcessImageDecoder decoder;
    decodeAndScale(state, decoder);
}

void scalingAlone(benchmark::State& state) {
    const auto bitmap = doubles::InProcessImageDecoder().decode(icon())->bitmap();
    for (auto _ : state) {
        benchmark::DoNotOptimize(platform::scaled(*bitmap, iconSize, iconSize));
    }
}

void once(benchmark::internal::Benchmark* bench) {
    bench->Iterations(1)
        ->Repetitions(samples)
        ->ReportAggregatesOnly()
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond)
        ->ComputeStatistics("p99", percentile99);
}

BENCHMARK(sandboxed)->Apply(once);
BENCHMARK(inProcess)->Apply(once);
BENCHMARK(scalingAlone)->Apply(once);

/// Prints as ever, and notes whether the sandboxed figures hold.
class LimitReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_name.function_name != "sandboxed") continue;
            holds_ = holds_ && !run.error_occurred;
            const double time = run.GetAdjustedRealTime();
            if (run.aggregate_name == "median") holds_ = holds_ && time <= maximumMedian;
            if (run.aggregate_name == "p99") holds_ = holds_ && time <= maximumPercentile;
        }
    }

    bool holds() const { return holds_; }

private:
    bool holds_ = true;
};

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    glintmark::LimitReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.holds() ? 0 : 1;
}
