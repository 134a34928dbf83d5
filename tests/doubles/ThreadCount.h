// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <omp.h>

#include <opencv2/core/utility.hpp>

namespace vxtest {

/// Sets the thread counts of OpenMP and OpenCV for one test.
class ThreadCount
{
public:
    explicit ThreadCount(int count) : openMp_(omp_get_max_threads()), openCv_(cv::getNumThreads())
    {
        omp_set_num_threads(count);
        cv::setNumThreads(count);
    }
    ThreadCount(const ThreadCount&) = delete;
    ThreadCount& operator=(const ThreadCount&) = delete;
    ~ThreadCount()
    {
        omp_set_num_threads(openMp_);
        cv::setNumThreads(openCv_);
    }

private:
    int openMp_;
    int openCv_;
};

}  // namespace vxtest
