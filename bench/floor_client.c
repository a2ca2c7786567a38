/* The least a device-list client can do: one blocking socket, the 8-byte
 * request, the reply's header and payload read in full, the payload's
 * length printed.  halvoctl's whole-process figures are measured against
 * this program.
 *
 * Exit status: 0 when the whole reply arrived, 1 otherwise. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { headerSize = 8, daemonPort = 32999 };

static int readFully(int fd, unsigned char* into, size_t size) {
    size_t filled = 0;
    while (filled < size) {
        ssize_t count = read(fd, into + filled, size - filled);
        if (count <= 0) {
            return 0;
        }
        filled += (size_t)count;
    }
    return 1;
}

static uint32_t littleEndian32(const unsigned char* bytes) {
    return (uint32_t)bytes[0] | (uint32_t)bytes[1] << 8 | (uint32_t)bytes[2] << 16 |
           (uint32_t)bytes[3] << 24;
}

int main(void) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) {
        perror("socket");
        return 1;
    }
    struct sockaddr_in daemon;
    memset(&daemon, 0, sizeof daemon);
    daemon.sin_family = AF_INET;
    daemon.sin_port = htons(daemonPort);
    daemon.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, (struct sockaddr*)&daemon, sizeof daemon) != 0) {
        perror("connect");
        return 1;
    }

    /* Command code 0 (device list), payload size 0. */
    static const unsigned char request[headerSize] = {0};
    if (write(fd, request, sizeof request) != (ssize_t)sizeof request) {
        perror("write");
        return 1;
    }

    unsigned char header[headerSize];
    if (!readFully(fd, header, sizeof header)) {
        fputs("short header\n", stderr);
        return 1;
    }
    uint32_t size = littleEndian32(header + 4);
    unsigned char* payload = malloc(size != 0 ? size : 1);
    if (payload == NULL || !readFully(fd, payload, size)) {
        fputs("short payload\n", stderr);
        return 1;
    }
    printf("%u\n", (unsigned)size);
    free(payload);
    close(fd);
    return 0;
}
