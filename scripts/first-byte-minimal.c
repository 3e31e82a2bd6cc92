/* The least a program can do to dial: open the port named by its one argument, write the dial
 * and wait for the modem's first answer. first-byte.py times it beside kestrawind. */
#include <fcntl.h>
#include <unistd.h>

int main(int argc, char** argv) {
  static const char dial[] = "ATDT0800123456\r";
  char answer[64];
  int fd;
  if (argc != 2) return 2;
  fd = open(argv[1], O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) return 1;
  if (write(fd, dial, sizeof dial - 1) != (ssize_t)(sizeof dial - 1)) return 1;
  if (read(fd, answer, sizeof answer) < 0) return 1;
  close(fd);
  return 0;
}
