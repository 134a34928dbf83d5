// SPDX-License-Identifier: Apache-2.0
#include "apps/vxkit/commands/DocumentsCommand.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "apps/ProgramRun.h"
#include "apps/vxkit/arguments/ManualPages.h"
#include "apps/vxkit/terminal/Progress.h"
#include "apps/vxkit/terminal/Verbosity.h"

using testing::HasSubstr;
using testing::Not;

namespace {

class Documents : public ProgramFolder
{
protected:
    void SetUp() override
    {
        ProgramFolder::SetUp();
        ASSERT_EQ(runVxkit({"documents", at("share")}).status, 0);
    }

    std::string shared(const std::string& name) const { return textOf(folder_ / "share" / name); }

    // What bash would offer for the last of these words.
    std::string completed(const std::string& words) const
    {
        const std::string script =
            "source " + at("share/bash/vxkit") + "; COMP_WORDS=(vxkit " + words +
            "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _vxkit; echo \"${COMPREPLY[*]}\"";
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> shell(
            ::popen(("bash -c '" + script + "'").c_str(), "r"), ::pclose);
        std::array<char, 4096> line{};
        EXPECT_NE(std::fgets(line.data(), static_cast<int>(line.size()), shell.get()), nullptr);
        return line.data();
    }
};

}  // namespace

TEST_F(Documents, HaveAPageForEachCommandWithAllThatItsHelpTells)
{
    const std::string program = shared("man1/vxkit.1");
    for (const std::string name : {"compare", "enhance", "psf", "superres", "help"}) {
        const std::string page = shared("man1/vxkit-" + name + ".1");
        EXPECT_THAT(page, HasSubstr(".SH NAME\nvxkit\\-" + name + " \\- "));
        EXPECT_THAT(program, HasSubstr("\\fB" + name + "\\fR\n"));
        std::istringstream words(run("help " + name).out);
        for (std::string word; words >> word;)
            if (word.starts_with("--") && word.size() > 3) {
                const std::string option =
                    word.substr(0, word.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"));
                EXPECT_NE(shared("zsh/_vxkit").find(option), std::string::npos) << name << ' ' << option;
            }
        std::istringstream lines(page);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_THAT(line, Not(HasSubstr("\\\\"))) << name;
            if (line.starts_with(".")) {
                EXPECT_THAT(line, testing::ContainsRegex("^\\.(TH|SH|SS|TP|PP|nf|fi)")) << name;
            }
        }
    }
    EXPECT_THAT(shared("man1/vxkit-superres.1"),
                HasSubstr("\\fB\\-o\\fR, \\fB\\-\\-output\\fR \\fIOUT\\fR\n"));
    EXPECT_THAT(shared("man1/vxkit-superres.1"), HasSubstr(".SH CODES\n.nf\n"));
    EXPECT_THAT(shared("man1/halvor.1"), HasSubstr("spr_max_frame="));
    EXPECT_THAT(shared("zsh/_vxkit"),
                HasSubstr("--json'[Print the results as one JSON object, and no remarks]' "));
    EXPECT_THAT(program, Not(HasSubstr("documents"))) << "not for users";
}

TEST(ManualPages, TakeAnyTextAsItStands)
{
    const std::string page =
        vxapp::manualPage("p", "s", "p [x]", ".TH is text\n\na\\n-b\n\nNotes:\n  x  y\n");
    EXPECT_THAT(page, testing::EndsWith("\\&.TH is text\n.PP\na\\en\\-b\n.SH NOTES\n.nf\n  x  y\n.fi\n"
                                        ".SH SEE ALSO\nvxkit(1)\n"));
}

TEST_F(Documents, CompleteCommandsOptionsAndChoices)
{
    EXPECT_EQ(completed("comp"), "compare\n");
    EXPECT_EQ(completed("superres --psf-s"), "--psf-sigma\n");
    EXPECT_EQ(completed("superres x.raw --engine ph"), "phase\n");
    EXPECT_EQ(completed("--quiet help psf"), "psf\n");
    EXPECT_EQ(completed("compare --verb"), "--verbose\n");
    EXPECT_EQ(completed("superres fra"), "\n") << "bash completes files";
    EXPECT_EQ(runVxkit({"documents", at("share/bash/vxkit")}).status, 2) << "a file, no folder";
}

TEST(Progress, SpeaksOnATerminalOnlyWhenThereIsReasonTo)
{
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(::grantpt(terminal), 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    const int end = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
    const int saved = ::dup(STDERR_FILENO);
    const auto shown = [&](vxapp::Verbosity verbosity, std::chrono::hours patience) {
        ::dup2(end, STDERR_FILENO);
        {
            const vxapp::VerbosityScope scope(verbosity, true);
            vxapp::Progress progress(30, patience);
            progress.show(7);
        }
        ::dup2(saved, STDERR_FILENO);
        // Behind the line, so that reading ends however it comes in pieces.
        EXPECT_EQ(::write(end, "|", 1), 1);
        std::string text;
        for (char c = 0; ::read(terminal, &c, 1) == 1 && c != '|';)
            text += c;
        return text;
    };
    EXPECT_THAT(shown(vxapp::Verbosity::normal, std::chrono::hours(0)),
                testing::AllOf(HasSubstr("frame 7 of 30, "), testing::EndsWith("\r\033[K")));
    EXPECT_EQ(shown(vxapp::Verbosity::normal, std::chrono::hours(1)), "") << "too early";
    EXPECT_EQ(shown(vxapp::Verbosity::quiet, std::chrono::hours(0)), "");
    for (const int file : {terminal, end, saved})
        ::close(file);
}
