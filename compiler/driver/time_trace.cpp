// Writing of time traces.
#include "driver/time_trace.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace vesk::compiler {
namespace {

long long microseconds(std::chrono::steady_clock::duration time) {
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

}  // namespace

std::string TimeTrace::json() const {
    nlohmann::ordered_json events = nlohmann::ordered_json::array();
    for (const Stage& stage : stages_) {
        nlohmann::ordered_json event = {{"name", stage.name},
                                        {"ph", "X"},
                                        {"pid", 1},
                                        {"tid", 1},
                                        {"ts", microseconds(stage.begin - start_)},
                                        {"dur", microseconds(stage.end - stage.begin)}};
        if (!stage.detail.empty()) event["args"] = {{"detail", stage.detail}};
        events.push_back(std::move(event));
    }
    const nlohmann::ordered_json all = {{"traceEvents", std::move(events)}};
    return all.dump(1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

bool TimeTrace::write(const std::string& path) const {
    std::ofstream out(path, std::ios::binary);
    out << json();
    out.close();
    return out.good();
}

}  // namespace vesk::compiler
