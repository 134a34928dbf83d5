// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <hdf5.h>
#include <sys/stat.h>

#include <array>
#include <future>

#include "apps/FrameSamples.h"
#include "apps/TemporaryFolder.h"
#include "apps/vxkit/formats/Hdf5Handles.h"
#include "apps/vxkit/input/Recording.h"
#include "apps/vxkit/output/FrameSink.h"
#include "apps/vxkit/terminal/Failure.h"

using namespace vxapp;

class Hdf5Files : public TemporaryFolder
{};

TEST_F(Hdf5Files, AreRefusedIfTheyTakeTheirSamplesFromOtherFiles)
{
    constexpr std::array<hsize_t, 2> lengths{3, 5};
    appendRaw(at("other.raw"), sampleCounts({5, 3}));
    {
        const Hdf5Handle file(H5Fcreate(at("in.h5").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT),
                              H5Fclose);
        const Hdf5Handle space(H5Screate_simple(2, lengths.data(), nullptr), H5Sclose);
        const Hdf5Handle layout(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
        ASSERT_GE(H5Pset_external(layout.get(), at("other.raw").c_str(), 0, 30), 0);
        const Hdf5Handle set(H5Dcreate2(file.get(), "frames", H5T_STD_U16LE, space.get(), H5P_DEFAULT,
                                        layout.get(), H5P_DEFAULT),
                             H5Dclose);
        ASSERT_TRUE(static_cast<bool>(set));
    }
    try {
        Recording({{at("in.h5")}, "", ""});
        ADD_FAILURE() << "accepted";
    } catch (const UsageError& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("in.h5: /frames takes its samples from other files"));
    }
}

TEST_F(Hdf5Files, AreReadFromAPipe)
{
    appendRaw(at("in.raw"), sampleCounts({5, 3}));
    const Recording source({{at("in.raw")}, "5x3", ""});
    const auto sink = openFrameSink({.path = at("in.h5")}, source, {{5, 3}, 1, SampleType::u16});
    sink->add(sampleCounts({5, 3}));
    sink->finish();
    ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0600), 0);
    auto fed = std::async(std::launch::async, [&] { writeText(at("pipe"), textOf(at("in.h5"))); });
    Recording recording({{at("pipe")}, "", ""});
    fed.get();
    EXPECT_TRUE(sameBits(recording.counts(0), sampleCounts({5, 3})));
}
