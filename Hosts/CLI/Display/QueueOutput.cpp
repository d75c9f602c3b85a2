#include "Hosts/CLI/Display/QueueOutput.h"

#include "Hosts/CLI/Display/QueueLines.h"
#include "Hosts/CLI/NextWords.h"

namespace vark::cli {

namespace {

std::vector<std::string> inWords(const std::vector<Said>& all) {
    std::vector<std::string> words;
    for (const Said& said : all)
        words.push_back(cli::inWords(said));
    return words;
}

}  // namespace

ExitCode printAnswer(Console& console, const QueueAnswer& answer, bool json) {
    const ExitCode code = exitCodeOf(answer.outcome);
    if (json) {
        JSONWriter record;
        record.beginObject().field("changed", answer.changed).field("results", inWords(answer.results));
        record.field("problems", inWords(answer.problems)).field("exitCode", static_cast<int>(code));
        console.printJSON(record.endObject().text());
    } else {
        for (const Said& result : answer.results)
            console.print(inWords(result));
    }
    for (const Said& problem : answer.problems)
        console.say(inWords(problem));
    return code;
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
