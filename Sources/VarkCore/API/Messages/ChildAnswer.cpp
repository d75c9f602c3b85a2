#include "VarkCore/API/Messages/ChildAnswer.h"

#include "VarkCore/API/Answers.h"

namespace vark {

ChildAnswer ChildAnswer::from(int status, std::string_view body) {
    if (status == 404 || status == 405) return fieldOf<std::string>(body, "error") ? none() : noRoute();
    if (status != 200) return noRoute();
    try {
        return child(VarkItem::fromJSON(parseJSON(body)));
    } catch (const DecodingError&) {
        return noRoute();
    }
}

}  // namespace vark
