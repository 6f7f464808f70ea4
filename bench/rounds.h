#ifndef BENCH_ROUNDS_H
#define BENCH_ROUNDS_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

/* Timing, and what is made of many timings: medians, and the ratio of pairs. */

inline double now_us() {
    auto since = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::micro>(since).count();
}

/* How long a piece of work takes, in microseconds. */
template <typename work>
double timed_us(work &&piece) {
    double start = now_us();
    piece();
    return now_us() - start;
}

inline double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/* What was measured, and the floor beside it in the same round. The ratio is the median of the
 * rounds' own ratios: what disturbs the machine for a second disturbs both sides of a round. */
class pairs {
  public:
    void add(double measured, double floor) {
        measured_.push_back(measured);
        floor_.push_back(floor);
        ratio_.push_back(measured / floor);
    }
    void print() const {
        std::printf("%.6g %.6g %.4f\n", median(measured_), median(floor_), median(ratio_));
    }

  private:
    std::vector<double> measured_;
    std::vector<double> floor_;
    std::vector<double> ratio_;
};

#endif
