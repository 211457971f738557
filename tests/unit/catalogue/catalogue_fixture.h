#ifndef TESTS_UNIT_CATALOGUE_CATALOGUE_FIXTURE_H
#define TESTS_UNIT_CATALOGUE_CATALOGUE_FIXTURE_H

#include <memory>

#include "catalogue/msg_file_store.h"
#include "tests/support/memory_log.h"
#include "tests/support/msg_documents.h"
#include "tests/support/temp_dir.h"

namespace wardend::test {

// A store over two fresh directories, "user" (as with -p) and "default", with the log in memory.
class CatalogueTest : public MemoryLogTest {
protected:
    void SetUp() override {
        MemoryLogTest::SetUp();
        store_ = std::make_unique<vesk::wardend::MsgFileStore>(defaultDir_.Path() + "/",
                                                               userDir_.Path() + "/");
    }

    TempDir userDir_;
    TempDir defaultDir_;
    std::unique_ptr<vesk::wardend::MsgFileStore> store_;
};

}  // namespace wardend::test

#endif
