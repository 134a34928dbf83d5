// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>

/// How a program shares a machine with others. Results are the same for any number of threads.
namespace vxsupport {

/// Chooses how the program shares the machine; to be called first in main().
///
/// Threads of OpenMP that wait for each other awake take the time of a busy neighbour's core, and small frames then
/// take many times as long. So they are to sleep. LLVM's library has a call for it. GNU's has read the environment
/// before main(): where cores are free, the program starts itself anew with OMP_WAIT_POLICY, once and as the same
/// process; where none is, that would take long, and the program stays on one thread. Nothing of this happens
/// where the environment tells how to wait.
void shareMachine(char** argv);

/// Sets the threads of OpenMP and of the image library: one for each core that has nothing else to do, as many
/// as frames of this size are worth. Cheap: looks at the machine 20 times a second at most. Nothing happens where
/// the environment has OMP_NUM_THREADS.
void chooseThreads(std::size_t pixels = std::numeric_limits<std::size_t>::max());

/// The rule behind chooseThreads().
/// @param cores    that the process may use, of the machine's `machineCores`
/// @param running  tasks on the machine that run or could, this one among them
int threadsFor(std::size_t pixels, int cores, int machineCores, int running);

/// Tasks that run or could, from the text of /proc/loadavg.
std::optional<int> runningTasks(const std::string& loadText);

}  // namespace vxsupport
