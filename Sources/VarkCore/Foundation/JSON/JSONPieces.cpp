#include "VarkCore/Foundation/JSON/JSONPieces.h"

#include <array>
#include <boost/json/monotonic_resource.hpp>

#include "VarkCore/Foundation/JSON/JSONBuilder.h"

namespace vark {
namespace {

namespace json = boost::json;

/// Sends what is inside an element of a named array to a builder of its own, and all else to the builder of
/// the document. Levels: 1 the document, 2 the object `within`, 3 a named array.
class PieceHandler {
  public:
    static constexpr std::size_t max_object_size = JSONBuilder::max_object_size;
    static constexpr std::size_t max_array_size = JSONBuilder::max_array_size;
    static constexpr std::size_t max_key_size = JSONBuilder::max_key_size;
    static constexpr std::size_t max_string_size = JSONBuilder::max_string_size;

    using Error = JSONBuilder::Error;
    using Text = JSONBuilder::Text;

    PieceHandler(std::string_view within, std::span<const JSONPieces> arrays)
        : within_(within), arrays_(arrays) {
        document_.begin(json::make_shared_resource<json::monotonic_resource>());
        element_.begin(json::storage_ptr(&elementMemory_));
    }

    json::value take() { return document_.take(); }

    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) { return true; }

    bool on_object_begin(Error&) {
        ++level_;
        if (level_ == 2) isWithin_ = key_ == within_;
        return true;
    }
    bool on_object_end(std::size_t count, Error& error) {
        if (!builder().on_object_end(count, error)) return false;
        if (level_ == 2) isWithin_ = false;
        --level_;
        return finishElement();
    }
    bool on_array_begin(Error&) {
        if (level_ == 2 && isWithin_) beginArray();
        ++level_;
        return true;
    }
    bool on_array_end(std::size_t count, Error& error) {
        if (level_ == 3 && array_ != nullptr) {
            array_ = nullptr;
            count = 0;
        }
        if (!builder().on_array_end(count, error)) return false;
        --level_;
        return finishElement();
    }
    bool on_key_part(Text text, std::size_t length, Error& error) {
        if (level_ <= 2) partOfKey_.append(text.data(), text.size());
        return builder().on_key_part(text, length, error);
    }
    bool on_key(Text text, std::size_t length, Error& error) {
        if (level_ <= 2) {
            partOfKey_.append(text.data(), text.size());
            key_.swap(partOfKey_);
            partOfKey_.clear();
        }
        return builder().on_key(text, length, error);
    }
    bool on_string_part(Text text, std::size_t length, Error& error) {
        return builder().on_string_part(text, length, error);
    }
    bool on_string(Text text, std::size_t length, Error& error) {
        return builder().on_string(text, length, error) && finishElement();
    }
    bool on_number_part(Text digits, Error& error) { return builder().on_number_part(digits, error); }
    bool on_int64(std::int64_t number, Text digits, Error& error) {
        return builder().on_int64(number, digits, error) && finishElement();
    }
    bool on_uint64(std::uint64_t number, Text digits, Error& error) {
        return builder().on_uint64(number, digits, error) && finishElement();
    }
    bool on_double(double number, Text digits, Error& error) {
        return builder().on_double(number, digits, error) && finishElement();
    }
    bool on_bool(bool flag, Error& error) { return builder().on_bool(flag, error) && finishElement(); }
    bool on_null(Error& error) { return builder().on_null(error) && finishElement(); }
    bool on_comment_part(Text, Error&) { return true; }
    bool on_comment(Text, Error&) { return true; }

  private:
    JSONBuilder& builder() { return array_ != nullptr ? element_ : document_; }

    void beginArray() {
        for (const JSONPieces& array : arrays_) {
            if (array.key != key_) continue;
            array_ = &array;
            array.begin();
        }
    }

    bool finishElement() {
        if (array_ == nullptr || level_ != 3) return true;
        array_->element(element_.take());
        // The value is gone, so its memory serves the next one.
        elementMemory_.release();
        element_.begin(json::storage_ptr(&elementMemory_));
        return true;
    }

    std::string_view within_;
    std::span<const JSONPieces> arrays_;

    std::array<unsigned char, 16384> elementBytes_;
    json::monotonic_resource elementMemory_{elementBytes_.data(), elementBytes_.size()};
    JSONBuilder document_;
    JSONBuilder element_;

    int level_ = 0;
    bool isWithin_ = false;
    /// The last key of levels 1 and 2.
    std::string key_;
    std::string partOfKey_;
    /// The named array in which the parser is.
    const JSONPieces* array_ = nullptr;
};

}  // namespace

json::value parseJSONInPieces(std::string_view bytes, std::string_view within,
                              std::span<const JSONPieces> arrays) {
    json::basic_parser<PieceHandler> parser(jsonParseOptions(), within, arrays);
    runJSONParser(parser, bytes);
    return parser.handler().take();
}

}  // namespace vark
