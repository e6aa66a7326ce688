// How long the stages of one command took. Kept in memory, written at the end in the format of Chrome's trace viewer.
//   TimeTrace trace; { StageTimer timer(trace, "load"); ... } trace.write(path);
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace vesk::compiler {

class TimeTrace {
public:
    struct Stage {
        std::string name, detail;
        std::chrono::steady_clock::time_point begin, end;
    };

    void add(Stage stage) { stages_.push_back(std::move(stage)); }
    const std::vector<Stage>& stages() const { return stages_; }
    std::string json() const;
    // False when the file cannot be written.
    bool write(const std::string& path) const;

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::vector<Stage> stages_;
};

// Adds the time of its own life as one stage.
class StageTimer {
public:
    StageTimer(TimeTrace& trace, std::string name, std::string detail = "")
        : trace_(trace), stage_{std::move(name), std::move(detail), std::chrono::steady_clock::now(), {}} {}
    ~StageTimer() {
        stage_.end = std::chrono::steady_clock::now();
        trace_.add(std::move(stage_));
    }
    StageTimer(const StageTimer&) = delete;
    StageTimer& operator=(const StageTimer&) = delete;

private:
    TimeTrace& trace_;
    TimeTrace::Stage stage_;
};

}  // namespace vesk::compiler
