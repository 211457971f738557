#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "catalogue/msg_file_store.h"
#include "platform/vcc/utils/thread_pool.h"
#include "tests/unit/catalogue/catalogue_fixture.h"

namespace {

using vesk::wardend::ErrorDomainInfo;
using vesk::wardend::MsgFileStore;
using wardend::test::Struct;
using wardend::test::TempDir;

constexpr int kRoots = 20;
const std::vector<std::string> kChildSuffixes = {"_a", "_b", "_c"};

std::string Root(int i) {
    return "R" + std::to_string(i);
}

// Readers copy both maps while the reader thread loads; every copy must be a state the
// catalogue really had: whole loads only, and texts as on disk.
TEST(CatalogueConcurrencyTest, QueriesCopyWholeLoadsWhileLoadsRun) {
    TempDir dir;
    std::map<std::string, std::string> onDisk;
    for (int i = 0; i < kRoots; ++i) {
        std::vector<std::string> children;
        for (const auto& suffix : kChildSuffixes) {
            children.push_back(Root(i) + suffix);
            onDisk[children.back()] = Struct(children.back(), {});
        }
        onDisk[Root(i)] = Struct(Root(i), children);
    }
    for (const auto& [name, text] : onDisk) {
        dir.WriteFile(name + ".msg", text);
    }
    dir.WriteFile("errors/error_domain-9-Domain.msg", "domain");
    onDisk["9"] = "domain";

    MsgFileStore store(dir.Path() + "/", "");
    lumo::vcc::utils::ThreadPool pool(1, 2048, "wrdn_rdmsg");
    std::promise<void> loaded;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < kRoots; ++i) {
            ASSERT_TRUE(pool.Enqueue([&store, i] { store.LoadDataType(Root(i)); }, 0));
        }
        ASSERT_TRUE(pool.Enqueue(
            [&store] {
                store.LoadErrorDomain(ErrorDomainInfo{9, "Domain"});
            },
            0));
    }
    ASSERT_TRUE(pool.Enqueue([&loaded] { loaded.set_value(); }, 0));

    std::atomic<bool> done{false};
    std::atomic<int> faults{0};
    const auto read = [&] {
        do {
            const auto msgs = store.QueryAllDataType();
            for (const auto& [name, text] : msgs) {
                faults += onDisk.at(name) == text ? 0 : 1;
            }
            for (const auto& [root, list] : store.QueryDataTypeRefList()) {
                std::vector<std::string> expected{root};
                for (const auto& suffix :
                     root == "9" ? std::vector<std::string>{} : kChildSuffixes) {
                    expected.push_back(root + suffix);
                }
                faults += list == expected ? 0 : 1;
            }
            for (int i = 0; i < kRoots; ++i) {
                // A root's children come in with the root, never after it.
                if (msgs.count(Root(i)) != 0 && msgs.count(Root(i) + kChildSuffixes.back()) == 0) {
                    ++faults;
                }
                // Answers from the shared snapshot: either not loaded yet or the text on disk.
                const std::string text = store.QueryDataType(Root(i));
                faults += text.empty() || text == onDisk.at(Root(i)) ? 0 : 1;
            }
        } while (!done.load());
    };
    std::thread reader1(read);
    std::thread reader2(read);
    const auto status = loaded.get_future().wait_for(std::chrono::seconds(60));
    done = true;
    reader1.join();
    reader2.join();
    ASSERT_EQ(status, std::future_status::ready);
    EXPECT_EQ(faults.load(), 0);
    EXPECT_EQ(store.QueryAllDataType(), onDisk);
    EXPECT_EQ(store.QueryDataTypeRefList().size(), static_cast<std::size_t>(kRoots + 1));
}

}  // namespace
