#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "enhancement/superresolution/SuperResolutionCAdapter.h"

namespace {

struct Decoding
{
    const char* text;
    std::string decoded;  ///< what the log says of camera and lens; empty if it found none
    std::string sigma;
};

// What a camera text sets is told by the log; the context's solver has no other window.
class CameraTable : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("VXKIT_LOG_FILE", path_.c_str(), 1);
        context_ = SuperResolution_init(16, 16);
    }
    void TearDown() override
    {
        SuperResolution_release(context_);
        unsetenv("VXKIT_LOG_FILE");
        SuperResolution_release(SuperResolution_init(16, 16));
        std::filesystem::remove(path_);
    }

    void expectEach(const std::vector<Decoding>& cases) const
    {
        for (const Decoding& c : cases) {
            SCOPED_TRACE(c.text != nullptr ? c.text : "no text");
            EXPECT_EQ(SuperResolution_setCameraAndLensType(context_, c.text), 0);
            EXPECT_EQ(lastLogged("  decoded camera: "), c.decoded);
            EXPECT_EQ(lastLogged("  using sigma: "), c.sigma);
        }
    }

private:
    // The rest of the line that begins so, among those of the last call.
    std::string lastLogged(const std::string& beginning) const
    {
        std::ifstream file(path_);
        std::string found;
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with("SuperResolution_setCamera"))
                found.clear();
            if (line.starts_with(beginning))
                found = line.substr(beginning.size());
        }
        return found;
    }

    int context_ = -1;
    std::filesystem::path path_ =
        std::filesystem::temp_directory_path() /
        ("vxkit-camera-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()));
};

}  // namespace

TEST_F(CameraTable, GivesEachModelItsSigmaBelowAndFromTheWideLensOn)
{
    expectEach({
        {"k310 FOV22", "k310 FOV: 22", "0.81"},
        {"k310 FOV23", "k310 FOV: 23", "0.81"},
        {"k315 FOV22", "k315 FOV: 22", "0.01"},
        {"k316 FOV23", "k316 FOV: 23", "0.01"},
        {"k320 FOV30", "k320 FOV: 30", "0.01"},
        {"k321 FOV7", "k321 FOV: 7", "0.01"},
        {"k322 FOV22", "k322 FOV: 22", "0.625"},
        {"k322 FOV23", "k322 FOV: 23", "0.625"},
        {"k325 FOV22", "k325 FOV: 22", "0.65"},
        {"k325 FOV23", "k325 FOV: 23", "0.35"},
        {"k330 FOV22", "k330 FOV: 22", "0.34"},
        {"k330 FOV90", "k330 FOV: 90", "0.34"},
    });
}

TEST_F(CameraTable, FindsCameraAndLensAnywhereInTheText)
{
    expectEach({
        {"FOV25 k310", "k310 FOV: 25", "0.81"},
        {"serial 4325-FOV\t +9mm", "k325 FOV: 9", "0.65"},
        // Of several models the one listed first counts, also if it stands in the lens's number.
        {"k330 or k310, FOV 25", "k310 FOV: 25", "0.81"},
        {"k330 FOV315", "k315 FOV: 315", "0.01"},
        {"k325 FOV-2", "k325 FOV: -2", "0.65"},
        {"k325 FOV0", "k325 FOV: 0", "0.65"},
        {"k325 FOV25.9", "k325 FOV: 25", "0.35"},
        {"k325 FOV010", "k325 FOV: 10", "0.65"},
        {"k325 FOV2147483647", "k325 FOV: 2147483647", "0.35"},
    });
}

TEST_F(CameraTable, FallsBackToTheUnknownCameraUnlessItFindsBoth)
{
    expectEach({
        {"", "", "0.683"},
        {nullptr, "", "0.683"},
        {"k325", "", "0.683"},
        {"FOV25", "", "0.683"},
        {"k999 FOV25", "", "0.683"},
        {"k325 fov25", "", "0.683"},
        {"k330 FOV", "", "0.683"},
        {"k330 FOV wide", "", "0.683"},
        {"k330 FOV-1", "", "0.683"},
        {"k330 FOV FOV25", "", "0.683"},
        {"k330 FOV2147483648", "", "0.683"},
        {"k330 FOV99999999999999999999999", "", "0.683"},
    });
}
