#ifndef TESTS_INTEGRATION_WARDENCTL_RUN_H
#define TESTS_INTEGRATION_WARDENCTL_RUN_H

// The real wardenctl (the binary at `program`), run to its end by a test.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace wardend::test {

// A generous timeout unless the caller sets one: a loaded machine may be slow to answer.
inline RunResult RunWardenctl(const std::string& program, std::vector<std::string> args,
                              const std::vector<std::string>& env) {
    if (std::find(args.begin(), args.end(), "--timeout") == args.end() && !args.empty()) {
        args.insert(args.end(), {"--timeout", "10000"});
    }
    return RunToEnd(program, args, env, std::chrono::seconds(30));
}

// wardenctl with --json: exit 0 and one JSON document on standard output, else a failure and a
// discarded document.
inline nlohmann::json RunWardenctlJson(const std::string& program, std::vector<std::string> args,
                                       const std::vector<std::string>& env) {
    args.emplace_back("--json");
    const RunResult run = RunWardenctl(program, args, env);
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out.find('\n'), run.out.size() - 1) << "not one document: " << run.out;
    nlohmann::json document = nlohmann::json::parse(run.out, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << run.out;
    return document;
}

}  // namespace wardend::test

#endif
