/* What a status report costs beyond building and printing its document. */
#include <cstring>
#include <string>

#include "bench/support/device.h"
#include "bench/support/ratio.h"
#include "bench/support/table.h"
#include "report/uploads.h"
#include "virtual/vap.h"

namespace {

/** The report as the cloud gets it. */
JsonText report() {
    const Json response = json_object();
    status_upload(nullptr, response.get());
    return json_print(response);
}

struct Result {
    bench::Medians medians;
    size_t bytes;
};

Result measure(int stations) {
    const bench::Device device(stations);
    const JsonText document = report();
    const Json tree(cJSON_Parse(document.get()));
    const auto build_and_print = [&] { json_print(Json(bench::rebuild(tree.get()))); };
    // A second between two reports: each looks its stations up among those before.
    const auto one_second = [] { vap::advance(1); };
    return {bench::measure([] { report(); }, build_and_print, one_second), strlen(document.get())};
}

}  // namespace

int main() {
    const Result few = measure(16);
    const Result many = measure(128);
    bench::Table table;
    for (const auto &[stations, result] : {std::pair(16, few), std::pair(128, many)}) {
        table.add({.what = "status_upload, " + std::to_string(stations) + " stations on each radio",
                   .norvex = result.medians.work,
                   .floor = result.medians.floor,
                   .goal = stations == 128 ? bench::ratio_at_most(1.3) : bench::Goal{}});
    }
    table.add({.what = "growth from 16 to 128 stations: time, document",
               .unit = bench::Unit::factor,
               .norvex = many.medians.work / few.medians.work,
               .floor = static_cast<double>(many.bytes) / static_cast<double>(few.bytes),
               .goal = bench::ratio_at_most(1.0)});
    return table.status();
}
