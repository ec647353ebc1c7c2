// The replay benchmark's prover: copies its standard input to its standard output.

#include <unistd.h>

int main() {
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
        if (got == 0)
            return 0;
        if (got < 0)
            return 1;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put =
                write(STDOUT_FILENO, buffer + done, static_cast<size_t>(got - done));
            if (put <= 0)
                return 1;
            done += put;
        }
    }
}
