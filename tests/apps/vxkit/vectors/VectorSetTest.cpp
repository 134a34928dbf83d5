// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/vectors/VectorSet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <fstream>
#include <set>

#include "apps/ProgramRun.h"
#include "apps/TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using vxapp::VectorCase;
using vxapp::VectorFile;

using Vectors = TemporaryFolder;

TEST_F(Vectors, AreTheSameForAnyNumberOfThreadsAndTellSomethingInEachOutput)
{
    omp_set_num_threads(1);
    const std::vector<VectorCase> one = vxapp::allVectors({});
    omp_set_num_threads(3);
    const std::vector<VectorCase> three = vxapp::allVectors({});
    ASSERT_EQ(one.size(), three.size());
    std::set<std::string> names;
    for (std::size_t i = 0; i < one.size(); ++i) {
        EXPECT_TRUE(names.insert(one[i].block()).second) << one[i].block();
        ASSERT_EQ(one[i].outputs().size(), three[i].outputs().size());
        for (std::size_t j = 0; j < one[i].outputs().size(); ++j) {
            const VectorFile& file = one[i].outputs()[j];
            EXPECT_EQ(file.bytes, three[i].outputs()[j].bytes) << one[i].block() << ' ' << file.name;
            EXPECT_NE(file.bytes.find_first_not_of('\0'), std::string::npos)
                << one[i].block() << ' ' << file.name << " is 0 throughout";
        }
    }
    for (const char* block :
         {"normalisation-right", "full-convolution", "valid-correlation", "edge-weights", "total-variation",
          "error-image", "registration", "temporal", "static-pattern", "spatial", "equalisation", "peaking"})
        EXPECT_EQ(names.count(block), 1U) << block;
}

TEST_F(Vectors, NameTheFirstWordOfAnAnswerThatDiffers)
{
    ASSERT_EQ(runVxkit({"vectors", at("bench"), "--seed", "7", "--size", "40x32", "--frames", "3"}).status,
              0);
    // Seed and size come from the list in the folder.
    const ProgramRun same = runVxkit({"vectors", "--check", at("bench")});
    EXPECT_EQ(same.status, 0) << same.error;
    EXPECT_THAT(same.out, HasSubstr("all equal (seed 7)"));

    const std::string answer = at("bench/spatial/out/frame.s32.raw");
    {
        std::fstream file(answer, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(4 * (2 * 40 * 32 + 5 * 40 + 6));
        file.write("\x01\x00\x00\x80", 4);
    }
    std::filesystem::remove(at("bench/edge-weights/out/Ld.s16.raw"));
    std::filesystem::resize_file(at("bench/peaking/out/frame.s32.raw"), 8);
    std::filesystem::remove_all(at("bench/temporal/out"));
    const ProgramRun different = runVxkit({"vectors", "--check", at("bench")});
    EXPECT_EQ(different.status, 1);
    EXPECT_THAT(different.out, HasSubstr(answer + ": frame 2, row 5, column 6: expected "));
    EXPECT_THAT(different.out, HasSubstr("found -2147483647\n"));
    EXPECT_THAT(different.out, HasSubstr("Ld.s16.raw: missing"));
    EXPECT_THAT(different.out, HasSubstr("has 8 bytes, expected 15360"));
    EXPECT_THAT(different.out, HasSubstr("not compared, for no output is there: temporal\n"));
}

TEST_F(Vectors, RefuseWhatMakesNoSense)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"vectors"},
                                                      {"vectors", at("bench"), "--check", at("bench")},
                                                      {"vectors", "--check", at("nowhere")},
                                                      {"vectors", at("bench"), "--size", "8x8"}}) {
        const ProgramRun run = runVxkit(arguments);
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(isOneLine(run.error)) << run.error;
    }
    std::filesystem::create_directories(at("bench/spatial"));
    EXPECT_EQ(runVxkit({"vectors", "--check", at("bench")}).status, 2) << "nothing to compare";
    std::ofstream(at("bench/vectors.txt")) << "seed many\n";
    EXPECT_THAT(runVxkit({"vectors", "--check", at("bench")}).error, HasSubstr("'seed many' can't be read"));
}

}  // namespace
