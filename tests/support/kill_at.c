/* Runs a program until it stops itself with SIGSTOP, then lets it go on from system call to system call and kills it
 * before the Nth: what the disk holds then is what it holds after the one before it.
 *
 * Usage: kill_at N PROGRAM [ARGUMENT...]
 *
 * Ends with 0 when it killed, 1 when the program ended before, 2 for trouble. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

static pid_t start(char** command) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  if (ptrace(PTRACE_TRACEME, 0, NULL, NULL) == 0) execvp(command[0], command);
  perror(command[0]);
  _exit(2);
}

/* Goes on until the program stops; returns the stop's signal, or -1 when the program has ended. */
static int go_on(pid_t pid, int untilSystemCall, int signal) {
  int status = 0;
  if (ptrace(untilSystemCall ? PTRACE_SYSCALL : PTRACE_CONT, pid, NULL, (void*)(long)signal) != 0) return -1;
  if (waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return -1;
  return WSTOPSIG(status);
}

static int kill_at(pid_t pid, long call) {
  const int systemCall = SIGTRAP | 0x80;
  /* Each call stops twice: when it is entered and when it is left. */
  long left = 2 * call - 1;
  int signal = 0;
  while (left > 0) {
    const int stop = go_on(pid, 1, signal);
    if (stop < 0) return 1;
    signal = stop == systemCall ? 0 : stop;
    if (stop == systemCall) --left;
  }
  kill(pid, SIGKILL);
  waitpid(pid, NULL, 0);
  return 0;
}

int main(int argc, char** argv) {
  int status = 0;
  if (argc < 3) return 2;
  const pid_t pid = start(argv + 2);
  if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFSTOPPED(status)) return 2;
  if (ptrace(PTRACE_SETOPTIONS, pid, NULL, (void*)(long)(PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL)) != 0) return 2;
  for (int stop = 0; stop != SIGSTOP;) {
    stop = go_on(pid, 0, 0);
    if (stop < 0) return 2;
  }
  return kill_at(pid, strtol(argv[1], NULL, 10));
}
