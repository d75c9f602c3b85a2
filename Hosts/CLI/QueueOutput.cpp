#include "Hosts/CLI/QueueOutput.h"

#include "Hosts/CLI/QueueWords.h"

namespace vark::cli {

ExitCode printAnswer(Console& console, const QueueAnswer& answer, bool json) {
    for (const std::string& result : answer.results) {
        if (!json) {
            console.print(result);
            continue;
        }
        JSONWriter record;
        record.beginObject().field("result", result).endObject();
        console.printJSON(record.text());
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
