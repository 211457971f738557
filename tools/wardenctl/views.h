#ifndef TOOLS_WARDENCTL_VIEWS_H
#define TOOLS_WARDENCTL_VIEWS_H

// What wardenctl shows of each answer of the tools service: an aligned table for people and a
// JSON document (the output record, see record_json.h) for scripts. Only the form asked for is
// made: for an answer of thousands of records either costs more than the call.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "records/service_outputs.h"
#include "tools/wardenctl/command_line.h"
#include "tools/wardenctl/record_json.h"

namespace vesk::wardenctl {

// Rows of cells under a header. Without a header it is a list of label and value rows.
struct Table {
    std::vector<std::string> header;
    std::vector<std::vector<std::string>> rows;
};

// Columns padded to their widest cell, two blanks apart, without trailing blanks. Control
// characters in a cell print as \xNN, so that a registered name cannot drive the terminal.
std::string FormatTable(const Table& table);

// One answer as people see it, and the exit code it makes.
struct View {
    std::string text;
    int exitCode{kExitAnswer};
};

// What scripts see of an answer: its output record as one JSON document on one line (see
// record_json.h). Text that is not UTF-8 is replaced in the document rather than failing it.
std::string RenderJson(const nlohmann::json& document);

// Writes RenderJson of an answer's record to `out`. The answers that list records are written
// one record at a time, to the same text: a whole document of thousands of records would cost
// many times the memory of the answer.
void WriteDocument(std::ostream& out, const vesk::wardend::QueryEventInfoOutput& output);
void WriteDocument(std::ostream& out, const vesk::wardend::QueryMethodInfoOutput& output);
void WriteDocument(std::ostream& out, const vesk::wardend::QueryNodeInfoOutput& output);
template <typename Output>
void WriteDocument(std::ostream& out, const Output& output) {
    out << RenderJson(output);
}

// The exit code of an answer, shown either way: a latency switch the daemon refused is
// kExitRefused, every other answer kExitAnswer.
int ExitCodeOf(const vesk::wardend::SwitchLatencyModeOutput& output);
template <typename Output>
int ExitCodeOf(const Output& /*output*/) {
    return kExitAnswer;
}

View NodeListView(const vesk::wardend::QueryNodeInfoOutput& output);
View NodeInfoView(const vesk::wardend::QueryNodeInfoOutput& output, const std::string& name);
View EventListView(const vesk::wardend::QueryEventInfoOutput& output);
View EventInfoView(const vesk::wardend::QueryEventInfoOutput& output, const std::string& type);
View EventShowView(const vesk::wardend::QueryEventShowOutput& output, const std::string& type);
View EventSubView(const vesk::wardend::QuerySubNodeEventInfoOutput& output);
View E2eView(const vesk::wardend::QuerySubNodeEventInfoOutput& output);
View MethodListView(const vesk::wardend::QueryMethodInfoOutput& output);
View MethodInfoView(const vesk::wardend::QueryMethodInfoOutput& output, const std::string& name);
View MethodTypeView(const vesk::wardend::QueryMethodTypeOutput& output, const std::string& name);
View TypeListView(const vesk::wardend::QueryAllDataTypeOutput& output);
View TypeShowView(const vesk::wardend::QueryDataTypeOutput& output, const std::string& name);
View TypeRefsView(const vesk::wardend::QueryDataTypeRefListOutput& output);
View LatencySwitchView(const vesk::wardend::SwitchLatencyModeOutput& output, bool on);
View LatencyStatusView(const vesk::wardend::QueryLatencyStatusOutput& output);
View LatencyResultView(const vesk::wardend::QueryLatencyResultOutput& output, std::uint16_t period);

}  // namespace vesk::wardenctl

#endif
