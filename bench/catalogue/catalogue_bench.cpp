#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "catalogue/msg_file_store.h"

namespace {

using vesk::wardend::MsgFileStore;

// A directory of .msg files for the length of one benchmark.
class MsgDir {
public:
    MsgDir() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "wardend-bench-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern + "/";
    }
    ~MsgDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    MsgDir(const MsgDir&) = delete;
    MsgDir& operator=(const MsgDir&) = delete;

    const std::string& Path() const { return path_; }
    void Write(const std::string& typeName, const std::string& text) const {
        std::ofstream(path_ + typeName + ".msg") << text;
    }

private:
    std::string path_;
};

std::string Struct(const std::string& name, const std::vector<std::string>& memberTypes) {
    std::string json = R"({"Name": ")" + name + R"(", "Type": "TYPE_STRUCT", "Members": [)";
    for (std::size_t i = 0; i < memberTypes.size(); ++i) {
        json += std::string(i == 0 ? "" : ", ") + R"({"Name": "field)" + std::to_string(i) +
                R"(", "Type": ")" + memberTypes[i] + "\"}";
    }
    return json + "]}";
}

std::string Type(int i) {
    return "Type" + std::to_string(i);
}

// A registration's load: the root and 50 struct types it refers to, each read twice (once by
// the walker, once into the catalogue), as the reader thread does it.
void BM_LoadDataTypeWith50References(benchmark::State& state) {
    const MsgDir dir;
    std::vector<std::string> references;
    for (int i = 0; i < 50; ++i) {
        references.push_back(Type(i));
        dir.Write(Type(i), Struct(Type(i), {"uint32", "float64", "string", "bool"}));
    }
    dir.Write("Root", Struct("Root", references));
    MsgFileStore store(dir.Path(), "");
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the loop idiom
        store.LoadDataType("Root");
    }
    if (store.QueryDataTypeRefList().at("Root").size() != 51) {
        state.SkipWithError("the load did not list 51 types");
    }
}
BENCHMARK(BM_LoadDataTypeWith50References)->Unit(benchmark::kMicrosecond);

// A catalogue of 5,000 types in which Alias0 leads through five links to Target.
struct AliasCatalogue {
    MsgDir dir;
    MsgFileStore store{dir.Path(), ""};
    std::map<std::string, std::string> msgs;

    AliasCatalogue() {
        std::vector<std::string> all;
        for (int i = 0; i < 4994; ++i) {
            all.push_back(Type(i));
            dir.Write(Type(i), Struct(Type(i), {"uint32", "float64", "string", "bool"}));
        }
        for (int link = 0; link < 5; ++link) {
            const std::string next = link == 4 ? "Target" : "Alias" + std::to_string(link + 1);
            all.push_back("Alias" + std::to_string(link));
            dir.Write(all.back(), R"({"Name": ")" + all.back() +
                                      R"(", "Type": "TYPE_REFERENCE", "Definition": ")" + next +
                                      "\"}");
        }
        all.emplace_back("Target");
        dir.Write("Target", Struct("Target", {"uint64"}));
        dir.Write("Catalogue", Struct("Catalogue", all));
        store.LoadDataType("Catalogue");
        msgs = store.QueryAllDataType();
    }
};

// The query as the tools service runs it, with no load since the previous query: the shared
// snapshot, then the chain.
void BM_QueryDataTypeThrough5Aliases(benchmark::State& state) {
    AliasCatalogue catalogue;
    MsgFileStore& store = catalogue.store;
    if (catalogue.msgs.size() != 5001) {
        state.SkipWithError("the catalogue does not hold 5,001 types");
    }
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the loop idiom
        benchmark::DoNotOptimize(store.QueryDataType("Alias0"));
    }
    if (store.QueryDataType("Alias0") != catalogue.msgs.at("Target")) {
        state.SkipWithError("the chain did not resolve to Target");
    }
}
BENCHMARK(BM_QueryDataTypeThrough5Aliases)->Unit(benchmark::kMicrosecond);

// The first query after a change pays for a fresh snapshot of the whole catalogue.
void BM_QueryDataTypeThrough5AliasesAfterALoad(benchmark::State& state) {
    AliasCatalogue catalogue;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the loop idiom
        state.PauseTiming();
        catalogue.store.LoadErrorDomain(vesk::wardend::ErrorDomainInfo{1, "None"});
        state.ResumeTiming();
        benchmark::DoNotOptimize(catalogue.store.QueryDataType("Alias0"));
    }
}
BENCHMARK(BM_QueryDataTypeThrough5AliasesAfterALoad)->Unit(benchmark::kMicrosecond);

// The chain alone, without the snapshot: how much of the query the copy costs.
void BM_ResolveDataTypeThrough5Aliases(benchmark::State& state) {
    const AliasCatalogue catalogue;
    for (auto _ : state) {  // NOLINT(clang-analyzer-deadcode.DeadStores): the loop idiom
        benchmark::DoNotOptimize(vesk::wardend::ResolveDataType("Alias0", catalogue.msgs));
    }
}
BENCHMARK(BM_ResolveDataTypeThrough5Aliases)->Unit(benchmark::kMicrosecond);

}  // namespace
