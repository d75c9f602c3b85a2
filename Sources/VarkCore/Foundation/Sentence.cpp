#include "VarkCore/Foundation/Sentence.h"

#include "VarkCore/Foundation/Text.h"

namespace vark {

std::string asSentence(std::string_view text) {
    std::string sentence(trimmed(text));
    const bool hasEnd = sentence.ends_with('.') || sentence.ends_with('!') || sentence.ends_with('?');
    if (!hasEnd) sentence += '.';
    return sentence;
}

}  // namespace vark
