// What a dump costs, sentence by sentence: the sentence class beside a plain scan of the same bytes in C,
// which is the limit.

#include "controller/nmea0183.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr int dataset_fields = 9;

/// The lines of a dive's log as the controller sends them.
std::vector<std::string> Dump()
{
    constexpr int datasets = 1000;
    std::vector<std::string> lines;
    for (int i = 0; i < datasets; ++i) {
        Nmea nmea("$PSEADATA");
        nmea.AddLong(i + 1);
        nmea.AddLong(i == 0 ? 1 : 10);
        nmea.AddLong(i == 0 ? 1550782004 : (0x0e34 + i) & 0xffff);
        nmea.AddDouble(i * 0.037, 2);
        nmea.AddDouble(21.5 - i * 0.001, 2);
        nmea.AddDouble(i % 360 + 0.5, 1);
        nmea.AddDouble(i % 20 - 10.25, 2);
        nmea.AddDouble(i % 30 - 15.75, 2);
        nmea.AddDouble(0, 1);
        nmea.AddChecksum();
        lines.push_back(nmea.GetSentence() + "\r\n");
    }
    return lines;
}

/// The fields' starts, and whether the checksum is right, in one pass over the bytes.
struct Scan
{
    std::array<const char *, 2 + dataset_fields> starts{};
    std::size_t count = 0;
    bool right = false;
};

Scan ScanSentence(const char *text)
{
    Scan scan;
    unsigned checksum = 0;
    scan.starts[scan.count++] = text;
    const char *at = text + 1;
    for (; *at != '*' && *at != '\0'; ++at) {
        checksum ^= static_cast<unsigned char>(*at);
        if (*at == ',' && scan.count < scan.starts.size())
            scan.starts[scan.count++] = at + 1;
    }
    if (*at == '*')
        scan.right = std::strtoul(at + 1, nullptr, 16) == checksum;
    return scan;
}

void Finish(benchmark::State &state, const std::vector<std::string> &lines)
{
    std::size_t bytes = 0;
    for (const std::string &line : lines)
        bytes += line.size();
    const auto rounds = static_cast<std::int64_t>(state.iterations());
    state.SetItemsProcessed(rounds * static_cast<std::int64_t>(lines.size()));
    state.SetBytesProcessed(rounds * static_cast<std::int64_t>(bytes));
}

template <typename Work>
void EachLine(benchmark::State &state, const Work &work)
{
    const std::vector<std::string> lines = Dump();
    for (auto round : state) {
        static_cast<void>(round);
        for (const std::string &line : lines) {
            if (!work(line)) {
                state.SkipWithError("A sentence was not read.");
                return;
            }
        }
    }
    Finish(state, lines);
}

void CheckPlainScan(benchmark::State &state)
{
    EachLine(state, [](const std::string &line) {
        const Scan scan = ScanSentence(line.c_str());
        benchmark::DoNotOptimize(scan.starts.data());
        return scan.right && scan.count == 1 + dataset_fields;
    });
}

void CheckNmea(benchmark::State &state)
{
    EachLine(state, [](const std::string &line) {
        Nmea nmea(line);
        return nmea.ChecksumValidate() && nmea.NumFields() == dataset_fields;
    });
}

void CheckNmeaReused(benchmark::State &state)
{
    Nmea nmea;
    EachLine(state, [&nmea](const std::string &line) { return nmea.InitAndValidate(line, dataset_fields); });
}

void ReadPlainScan(benchmark::State &state)
{
    EachLine(state, [](const std::string &line) {
        const Scan scan = ScanSentence(line.c_str());
        double sum = 0;
        for (std::size_t i = 1; i <= 3; ++i)
            sum += static_cast<double>(std::strtol(scan.starts[i], nullptr, 10));
        for (std::size_t i = 4; i <= dataset_fields; ++i)
            sum += std::strtod(scan.starts[i], nullptr);
        benchmark::DoNotOptimize(sum);
        return scan.right && line.compare(0, 9, "$PSEADATA") == 0;
    });
}

void ReadNmea(benchmark::State &state)
{
    EachLine(state, [](const std::string &line) {
        Nmea nmea(line);
        const bool dataset = nmea.ChecksumValidate() && nmea.NumFields() >= dataset_fields &&
                             nmea.FieldAsString(0) == "$PSEADATA";
        double sum = 0;
        for (unsigned long i = 1; dataset && i <= 3; ++i)
            sum += nmea.FieldAsInt(i);
        for (unsigned long i = 4; dataset && i <= dataset_fields; ++i)
            sum += nmea.FieldAsDouble(i);
        benchmark::DoNotOptimize(sum);
        return dataset && nmea.IsValid();
    });
}

void Build(benchmark::State &state)
{
    for (auto round : state) {
        static_cast<void>(round);
        Nmea nmea("$PSEASETSETTINGS");
        for (long value : {1L, 500L, 2500L, 30L, 29L})
            nmea.AddLong(value);
        nmea.AddChecksum();
        if (!nmea.IsValid())
            state.SkipWithError("A sentence was not built.");
        benchmark::DoNotOptimize(nmea);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

BENCHMARK(CheckPlainScan);
BENCHMARK(CheckNmea);
BENCHMARK(CheckNmeaReused);
BENCHMARK(ReadPlainScan);
BENCHMARK(ReadNmea);
BENCHMARK(Build);

} // namespace

BENCHMARK_MAIN();
