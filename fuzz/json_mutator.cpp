/**
 * Changes the JSON behind an input's first line as JSON: one random node at a time.
 * The fuzzer's own bytes come in wherever a text changes, and as a whole now and then.
 */
#include <algorithm>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "include/json.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t max_size);

namespace {

using Random = std::minstd_rand;

size_t pick(Random &random, size_t count) {
    return random() % count;
}

/** A node and what holds it; null for the root. */
struct Place {
    cJSON *node;
    cJSON *parent;
};

void collect(cJSON *node, cJSON *parent, std::vector<Place> &places) {
    places.push_back({node, parent});
    for (cJSON *child = node->child; child != nullptr; child = child->next) {
        collect(child, node, places);
    }
}

/** A text as the fuzzer changes it, with its dictionary. */
std::string mutated(const char *text) {
    char buffer[256] = {};
    const size_t length = std::min(strlen(text), sizeof buffer / 2);
    memcpy(buffer, text, length);
    buffer[LLVMFuzzerMutate(reinterpret_cast<uint8_t *>(buffer), length, sizeof buffer - 1)] = '\0';
    return buffer;
}

Json number(Random &random) {
    constexpr double numbers[] = {0,
                                  1,
                                  2,
                                  -1,
                                  5,
                                  38,
                                  7.5,
                                  255,
                                  256,
                                  2147483647,
                                  -2147483648.0,
                                  4294967295,
                                  3232235777,
                                  4294967296,
                                  1e18,
                                  1e19,
                                  -1e300,
                                  1e308,
                                  1767225600.0};
    const size_t i = pick(random, std::size(numbers) + 1);
    return Json(cJSON_CreateNumber(i < std::size(numbers) ? numbers[i]
                                                          : static_cast<int>(pick(random, 4096))));
}

Json text(Random &random) {
    constexpr size_t lengths[] = {0, 1, 15, 16, 31, 32, 63, 64, 255, 1023, 1024, 4000};
    const size_t i = pick(random, 2 * std::size(lengths));
    const std::string content = i < std::size(lengths) ? std::string(lengths[i], 'x') : mutated("");
    return Json(cJSON_CreateString(content.c_str()));
}

Json any(Random &random) {
    switch (pick(random, 6)) {
        case 0:
            return Json(cJSON_CreateNull());
        case 1:
            return Json(cJSON_CreateBool(static_cast<cJSON_bool>(pick(random, 2))));
        case 2:
            return json_array();
        case 3:
            return json_object();
        case 4:
            return text(random);
        default:
            return number(random);
    }
}

void add(cJSON *parent, const std::string &name, Json child) {
    if (cJSON_IsArray(parent)) {
        json_append(parent, std::move(child));
    } else if (cJSON_IsObject(parent)) {
        json_add_named(parent, name.c_str(), std::move(child));
    }
}

std::string name_of(const cJSON *node) {
    return node->string != nullptr ? node->string : "x";
}

/** Puts `fresh` in the place of a node under the root. */
void replace(const Place &place, Json fresh, const std::string &name) {
    cJSON *const raw = fresh.release();
    cJSON_free(std::exchange(raw->string, nullptr));
    if (cJSON_IsObject(place.parent)) {
        raw->string = static_cast<char *>(cJSON_malloc(name.size() + 1));
        memcpy(raw->string, name.c_str(), name.size() + 1);
    }
    cJSON_ReplaceItemViaPointer(place.parent, place.node, raw);
}

void change(const Place &place, const std::vector<Place> &places, Random &random) {
    const std::string name = name_of(place.node);
    const Place &other = places[pick(random, places.size())];
    switch (pick(random, 7)) {
        case 0:
            cJSON_Delete(cJSON_DetachItemViaPointer(place.parent, place.node));
            break;
        case 1:  // once more, or many times
            for (size_t i = pick(random, 8) == 0 ? 100 : 1; i > 0; --i) {
                add(place.parent, name, Json(cJSON_Duplicate(place.node, 1)));
            }
            break;
        case 2:
            replace(place, any(random), name);
            break;
        case 3:  // another name
            replace(place, Json(cJSON_Duplicate(place.node, 1)), mutated(name.c_str()));
            break;
        case 4:  // a part of the document inside, or beside
            add(place.node, mutated(name.c_str()), Json(cJSON_Duplicate(other.node, 1)));
            break;
        case 5:
            add(place.parent, mutated(name.c_str()), any(random));
            break;
        default:
            replace(place,
                    cJSON_IsString(place.node)
                        ? Json(cJSON_CreateString(mutated(place.node->valuestring).c_str()))
                        : number(random),
                    name);
    }
}

/** The document after a change; empty when it could not be printed. */
std::string changed(Json document, Random &random) {
    for (size_t i = 1 + pick(random, 3); i > 0; --i) {
        std::vector<Place> places;
        collect(document.get(), nullptr, places);
        const Place &place = places[pick(random, places.size())];
        if (place.parent != nullptr) {
            change(place, places, random);
        } else {
            add(place.node, mutated(""), any(random));
        }
    }
    const JsonText printed(cJSON_PrintUnformatted(document.get()));
    return printed ? printed.get() : "";
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size,
                                          unsigned int seed) {
    Random random(seed);
    const std::string input(reinterpret_cast<const char *>(data), size);
    const size_t head = std::min(input.find('\n'), input.size());
    const std::string body = input.substr(std::min(head + 1, input.size()));
    Json document(cJSON_Parse(body.c_str()));
    if (!document || pick(random, 8) == 0) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    const std::string output = input.substr(0, head) + "\n" + changed(std::move(document), random);
    const size_t length = std::min(output.size(), max_size);
    memcpy(data, output.data(), length);
    return length;
}
