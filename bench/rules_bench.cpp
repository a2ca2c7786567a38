// Rule text against JSON for the same rule set: the parser should keep up
// with Boost.JSON reading the records as JSON, and the printer with
// Boost.JSON writing them.
#include "rules/record_generator.h"
#include "rules/rule_parser.h"
#include "rules/rule_printer.h"

#include <benchmark/benchmark.h>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

namespace json = boost::json;

constexpr int ruleCount = 100000;

struct RuleSet {
    json::object reply;
    std::string text;
    std::string jsonText;
};

// The printer writes its output to a file in memory, rewound each round.
std::string printToString(const json::object& reply) {
    char* data = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&data, &size);
    halvo::rules::outputRuleList(reply, 0, out);
    std::fclose(out);
    std::string text(data, size);
    std::free(data);
    return text;
}

const RuleSet& ruleSet() {
    static const RuleSet set = [] {
        halvo::rules::RecordGenerator generator(7);
        json::array records;
        records.reserve(ruleCount);
        for (int i = 0; i < ruleCount; ++i) {
            records.emplace_back(generator.next());
        }
        RuleSet result;
        result.reply = json::object{{"rules", std::move(records)}};
        result.text = printToString(result.reply);
        result.jsonText = json::serialize(result.reply.at("rules"));
        return result;
    }();
    return set;
}

void countRules(benchmark::State& state, std::size_t bytes) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * ruleCount);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void BM_ParseRuleText(benchmark::State& state) {
    const std::string& text = ruleSet().text;
    for (auto _ : state) {
        auto records = halvo::rules::rule_parser_run(text);
        benchmark::DoNotOptimize(records);
    }
    countRules(state, text.size());
}

void BM_ParseJson(benchmark::State& state) {
    const std::string& text = ruleSet().jsonText;
    for (auto _ : state) {
        json::value records = json::parse(text);
        benchmark::DoNotOptimize(records);
    }
    countRules(state, text.size());
}

void BM_PrintRuleList(benchmark::State& state) {
    const RuleSet& set = ruleSet();
    std::vector<char> buffer(set.text.size() + 1);
    std::FILE* out = fmemopen(buffer.data(), buffer.size(), "w");
    for (auto _ : state) {
        std::rewind(out);
        halvo::rules::outputRuleList(set.reply, 0, out);
        std::fflush(out);
    }
    std::fclose(out);
    countRules(state, set.text.size());
}

void BM_SerializeJson(benchmark::State& state) {
    const RuleSet& set = ruleSet();
    for (auto _ : state) {
        std::string text = json::serialize(set.reply.at("rules"));
        benchmark::DoNotOptimize(text);
    }
    countRules(state, set.jsonText.size());
}

BENCHMARK(BM_ParseRuleText)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseJson)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PrintRuleList)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SerializeJson)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
