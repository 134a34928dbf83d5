// SPDX-License-Identifier: Apache-2.0
#include "enhancement/superresolution/engine/CameraTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace halvor::vx;

TEST(CameraTable, GivesEachModelItsSigmaBelowAndFromTheWideLensOn)
{
    struct Model
    {
        const char* name;
        float below;
        float wide;
    };
    for (const Model& model :
         {Model{"k310", 0.81F, 0.81F}, Model{"k315", 0.01F, 0.01F}, Model{"k316", 0.01F, 0.01F},
          Model{"k320", 0.01F, 0.01F}, Model{"k321", 0.01F, 0.01F}, Model{"k322", 0.625F, 0.625F},
          Model{"k325", 0.65F, 0.35F}, Model{"k330", 0.34F, 0.34F}, Model{"k999", 0.683F, 0.683F}}) {
        EXPECT_EQ(psfSigmaOf(model.name, 22), model.below) << model.name;
        EXPECT_EQ(psfSigmaOf(model.name, 23), model.wide) << model.name;
    }
}

TEST(CameraTable, FindsCameraAndLensAnywhereInTheText)
{
    struct Decoding
    {
        const char* text;
        const char* model;
        int fieldOfView;
    };
    for (const Decoding& c : std::vector<Decoding>{
             {"FOV25 k310", "k310", 25},
             {"serial 4325-FOV\t +9mm", "k325", 9},
             // Of several models the one listed first counts, also if it stands in the lens's number.
             {"k315 or k310, FOV 25", "k310", 25},
             {"k330 FOV315", "k315", 315},
             {"k325 FOV-2", "k325", -2},
             {"k325 FOV0", "k325", 0},
             {"k325 FOV25.9", "k325", 25},
             {"k325 FOV010", "k325", 10},
             {"k325 FOV2147483647", "k325", 2147483647},
             {"k316FOV7", "k316", 7},
             {"k320 FOV1", "k320", 1},
             {"k321 FOV1", "k321", 1},
             {"k322 FOV1", "k322", 1}}) {
        std::string model;
        int fieldOfView = 0;
        EXPECT_TRUE(decodeCameraAndLens(c.text, model, fieldOfView)) << c.text;
        EXPECT_EQ(model, c.model) << c.text;
        EXPECT_EQ(fieldOfView, c.fieldOfView) << c.text;
    }
}

TEST(CameraTable, KnowsNothingUnlessItFindsBoth)
{
    for (const char* text :
         {"", "k325", "FOV25", "k999 FOV25", "k325 fov25", "k330 FOV", "k330 FOV wide", "k330 FOV-1",
          "k330 FOV FOV25", "k330 FOV2147483648", "k330 FOV99999999999999999999999"}) {
        std::string model;
        int fieldOfView = 0;
        EXPECT_FALSE(decodeCameraAndLens(text, model, fieldOfView)) << text;
    }
}
