#include "Hosts/CLI/QueueOutput.h"

#include "Hosts/CLI/QueueWords.h"

namespace vark::cli {

ExitCode printAnswer(Console& console, const QueueAnswer& answer, bool json) {
    if (json) {
        JSONWriter record;
        record.beginObject().field("changed", answer.changed).field("results", answer.results);
        record.field("problems", answer.problems).field("exitCode", static_cast<int>(answer.code));
        console.printJSON(record.endObject().text());
    } else {
        for (const std::string& result : answer.results)
            console.print(result);
    }
    for (const std::string& problem : answer.problems)
        console.say(problem);
    return answer.code;
}

void printQueue(Console& console, const QueueView& view, bool json) {
    if (!json) {
        for (const std::string& line : queueLines(view, console.signs()))
            console.print(line);
        return;
    }
    auto print = [&](std::string_view kind, auto encode) {
        JSONWriter record;
        record.beginObject().field("kind", kind);
        encode(record);
        record.endObject();
        console.printJSON(record.text());
    };
    print("queue", [&](JSONWriter& record) { view.encodeHead(record); });
    for (const EntryView& entry : view.entries)
        print("entry", [&](JSONWriter& record) { entry.encode(record); });
    for (const FileView& file : view.files)
        print("file", [&](JSONWriter& record) { file.encode(record); });
}

}  // namespace vark::cli
