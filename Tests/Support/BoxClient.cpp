#include "Tests/Support/BoxClient.h"

#include <curl/curl.h>
#include <fmt/format.h>

#include <algorithm>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "VarkBox/Hasher.h"

namespace vark::box {

namespace json = boost::json;

json::value Answer::json() const {
    return json::parse(body);
}

std::string Answer::error() const {
    json::error_code wrong;
    json::value value = json::parse(body, wrong);
    if (wrong || !value.is_object()) return {};
    const json::value* error = value.get_object().if_contains("error");
    return error != nullptr && error->is_string() ? std::string(error->get_string()) : std::string();
}

BoxClient::BoxClient(std::string url, std::filesystem::path authority, std::string token)
    : url_(std::move(url)),
      authority_(std::move(authority)),
      token_(std::move(token)),
      handle_(curl_easy_init(), [](void* handle) { curl_easy_cleanup(handle); }) {}

Answer BoxClient::send(std::string_view method, std::string_view target, std::string_view body,
                       std::vector<std::string> headers, long timeoutMilliseconds) {
    CURL* curl = handle_.get();
    curl_easy_reset(curl);
    std::string url = target.starts_with("/") ? url_ + std::string(target) : std::string(target);
    bool toApplication = url.starts_with(url_);
    if (toApplication && !token_.empty()) headers.push_back("Authorization: Bearer " + token_);
    headers.emplace_back("Expect:");
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> list(nullptr, curl_slist_free_all);
    for (const std::string& header : headers)
        list.reset(curl_slist_append(list.release(), header.c_str()));

    Answer answer;
    auto collect = [](char* bytes, std::size_t size, std::size_t count, void* to) -> std::size_t {
        static_cast<std::string*>(to)->append(bytes, size * count);
        return size * count;
    };
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, std::string(method).c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list.get());
    curl_easy_setopt(curl, CURLOPT_CAINFO, authority_.c_str());
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeoutMilliseconds);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, +collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer.body);
    if (method != "GET") {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.empty() ? "" : body.data());
    }
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> places(nullptr, curl_slist_free_all);
    if (url.find(".test:") != std::string::npos) {
        places.reset(curl_slist_append(nullptr, "::127.0.0.1:"));
        curl_easy_setopt(curl, CURLOPT_CONNECT_TO, places.get());
    }
    answer.problem = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.status);
    const char* redirect = nullptr;
    curl_easy_getinfo(curl, CURLINFO_REDIRECT_URL, &redirect);
    if (redirect != nullptr) answer.redirect = redirect;
    return answer;
}

Answer BoxClient::post(std::string_view target, const json::value& body) {
    return send("POST", target, json::serialize(body), {"Content-Type: application/json"});
}

Answer BoxClient::control(std::string_view method, std::string_view target, const json::value& body) {
    BoxClient nobody(url_, authority_, "");
    return nobody.send(method, target, body.is_null() ? std::string() : json::serialize(body));
}

Answer BoxClient::begin(std::string_view path, std::string_view bytes, bool replace) {
    json::object request{
        {"path", path}, {"size", bytes.size()}, {"sha256", sha256(bytes)}, {"mtime", 1700000000.5}};
    if (replace) request["replace"] = true;
    return post("/api/upload/begin", request);
}

Answer BoxClient::upload(std::string_view path, std::string_view bytes, bool replace) {
    Answer begun = begin(path, bytes, replace);
    if (begun.status != 200) return begun;
    json::object start = begun.json().as_object();
    if (start.contains("exists")) return begun;
    std::string id(start.at("upload_id").as_string());
    auto chunkSize = start.at("chunk_size").to_number<std::size_t>();
    const json::array& have = start.at("have").as_array();
    std::string base = fmt::format("/api/upload/{}", id);
    if (const json::value* chunkURL = start.if_contains("chunk_url")) base = chunkURL->as_string();
    for (std::size_t index = 0; index * chunkSize < bytes.size(); ++index) {
        if (std::find(have.begin(), have.end(), json::value(index)) != have.end()) continue;
        Answer put =
            send("PUT", fmt::format("{}/{}", base, index), bytes.substr(index * chunkSize, chunkSize));
        if (put.status != 200) return put;
    }
    Answer finished = send("POST", fmt::format("/api/upload/{}/finish", id));
    if (finished.status != 200 && finished.status != 202) return finished;
    return settled(id);
}

Answer BoxClient::settled(std::string_view uploadID) {
    while (true) {
        Answer status = get(fmt::format("/api/upload/{}", uploadID));
        if (status.status != 200 || status.json().at("state") != "checking") return status;
    }
}

std::string sha256(std::string_view bytes) {
    Hasher hasher;
    hasher.add(bytes);
    return hasher.digest();
}

}  // namespace vark::box
