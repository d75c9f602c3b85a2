#include "Hosts/CLI/NextWords.h"

#include <fmt/format.h>

#include <string_view>

namespace vark::cli {

namespace {

using Step = Next::Step;

struct Usual {
    /// As `Next::word`.
    std::string_view word;
    std::string_view command;
};

Usual usualOf(Step step) {
    switch (step) {
        case Step::begin:
            return {"Put something in", "vark send PATH..."};
        case Step::bringIn:
            return {"Bring it in", "vark ingest"};
        case Step::carryOn:
            return {"Carry on", "vark send"};
        case Step::giveUp:
            return {"Give it up", "vark clear"};
        case Step::connectAgain:
            return {"Connect again", "vark connect URL"};
        case Step::openKeychain:
            return {"Open the keychain and try again.", ""};
        case Step::useAFile:
            return {"To keep the token in a file that only you can read",
                    "vark connect URL --secret-store file"};
        case Step::decide:
            return {"Decide", "vark resolve"};
        case Step::retry:
            return {"Try what failed again", "vark retry"};
        case Step::resume:
            return {"Carry on", "vark resume"};
        case Step::watch:
            return {"Look at the queue", "vark queue"};
        case Step::makeRoom:
            return {"Make room, and ask again.", ""};
        case Step::seeDiary:
            return {"Look at why with: vark log, and try again.", "vark log"};
        case Step::trustAuthority:
            return {"If the vark has an authority of its own, add: --ca-file FILE", ""};
        case Step::useACode:
            return {"Sign in with a code from the portal", "vark connect URL --code CODE"};
        case Step::chooseFolder:
            return {"To work below one folder of the vark, add: --root FOLDER", ""};
        case Step::lookAround:
            return {"Connect to the whole of it, and look at what there is", "vark ls"};
    }
}

std::string phraseOf(const Next& next) {
    const Usual usual = usualOf(next.step);
    if (next.word.empty() && next.step == Step::useAFile)
        return fmt::format("{}, add: --secret-store file", usual.word);
    if (!next.word.empty() && next.step == Step::watch)
        return fmt::format("\"{}\" shows {}.", usual.command, next.word);
    if (!next.word.empty() && next.step == Step::retry)
        return fmt::format("after {} {}", usual.command, next.word);
    const std::string_view word = next.word.empty() ? usual.word : next.word;
    if (usual.command.empty() || word.ends_with('.') || word.ends_with(',')) return std::string(word);
    return fmt::format("{}{}{}", word, word.ends_with(':') ? " " : " with: ", usual.command);
}

}  // namespace

std::string inWords(const Said& said) {
    std::string words;
    for (const Next& next : said.next) {
        if (!words.empty()) words += words.ends_with('.') || words.ends_with(',') ? " " : ", ";
        words += phraseOf(next);
    }
    return words.empty() || said.text.empty() ? said.text + words : fmt::format("{} {}", said.text, words);
}

}  // namespace vark::cli
