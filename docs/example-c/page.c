/* A server of one page: phones are taken on a port, and a browser on the same port sees the newest picture of each camera.
 *
 *   page DATA PORT CAMERA PASSWORD     until SIGINT or SIGTERM; 0 takes a free port
 *
 * http://127.0.0.1:PORT/ is the page, /CAMERA.jpg the picture. */
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <morrowstream.h>

static volatile sig_atomic_t ended;

/* The newest frame, kept; 0 before the first. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static morrow_frame newest;

static void require(int status) {
    if (status != MORROW_OK) {
        fprintf(stderr, "%s (%d)\n", morrow_last_error(), status);
        exit(1);
    }
}

static void end(int number) {
    (void)number;
    ended = 1;
}

/* The phone is not read until this returns: change the frames over and go. */
static void on_frame(const char *camera, morrow_frame frame, void *payload) {
    morrow_frame former;
    (void)camera, (void)payload;
    morrow_frame_keep(frame);
    pthread_mutex_lock(&lock);
    former = newest;
    newest = frame;
    pthread_mutex_unlock(&lock);
    if (former != 0)
        morrow_frame_release(former);
}

static void on_taken(int outcome, const char *camera, void *payload) {
    (void)payload;
    printf("%s: %s\n", camera, outcome == MORROW_UPLOADING ? "a phone sends" : "a connection is turned away");
}

static void send_all(int connection, const void *bytes, size_t size) {
    const char *at = bytes;
    ssize_t sent;
    for (; size > 0; at += sent, size -= (size_t)sent) {
        if ((sent = send(connection, at, size, MSG_NOSIGNAL)) <= 0)
            return;
    }
}

static void answer(int connection, const char *status, const char *type, const void *body, size_t size) {
    char head[256];
    const int length = snprintf(head, sizeof head, "HTTP/1.0 %s\r\nContent-Type: %s\r\nContent-Length: %zu\r\n\r\n", status, type, size);
    send_all(connection, head, (size_t)length);
    send_all(connection, body, size);
}

static void answer_picture(int connection) {
    const void *bytes = NULL;
    size_t size = 0;
    morrow_frame frame;
    pthread_mutex_lock(&lock);
    frame = newest;
    if (frame != 0)
        morrow_frame_keep(frame);
    pthread_mutex_unlock(&lock);
    if (frame != 0 && morrow_frame_jpeg(&bytes, &size, frame) == MORROW_OK)
        answer(connection, "200 OK", "image/jpeg", bytes, size);
    else
        answer(connection, "404 Not Found", "text/plain", "no picture yet\n", 15);
    if (frame != 0)
        morrow_frame_release(frame);
}

/* A phone's connection goes to the library with what was read of it; a browser is answered here. */
static void serve(morrow_server server, int connection, const char *camera) {
    const struct timeval limit = {5, 0};
    char bytes[4096], picture[128], page[512];
    ssize_t size, more;
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    for (size = 0; (size_t)size < sizeof bytes - 1; size += more) {
        bytes[size] = 0;
        if (strstr(bytes, "\r\n\r\n") != NULL || (more = recv(connection, bytes + size, sizeof bytes - 1 - (size_t)size, 0)) <= 0)
            break;
    }
    bytes[size] = 0;
    if (strncmp(bytes, "POST /mobile/video/", 19) == 0) {
        const struct timeval none = {0, 0};
        setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &none, sizeof none);
        if (morrow_take(server, connection, bytes, (size_t)size, on_taken, NULL) == MORROW_OK)
            return;
    }
    snprintf(picture, sizeof picture, "GET /%s.jpg ", camera);
    snprintf(page, sizeof page,
             "<!DOCTYPE html><meta charset=utf-8><title>%s</title><img id=picture src=\"/%s.jpg\" alt=\"%s\"><script>"
             "setInterval(() => picture.src = \"/%s.jpg?\" + Date.now(), 1000)</script>\n", camera, camera, camera, camera);
    if (strncmp(bytes, picture, strlen(picture) - 1) == 0)
        answer_picture(connection);
    else if (strncmp(bytes, "GET / ", 6) == 0)
        answer(connection, "200 OK", "text/html; charset=utf-8", page, strlen(page));
    else
        answer(connection, "404 Not Found", "text/plain", "there is nothing here\n", 22);
    close(connection);
}

static int listen_on(int port) {
    const int listener = socket(AF_INET, SOCK_STREAM, 0), on = 1;
    struct sockaddr_in address = {0};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_port = htons((uint16_t)port);
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener, (struct sockaddr *)&address, size) != 0 || listen(listener, 16) != 0 ||
        getsockname(listener, (struct sockaddr *)&address, &size) != 0) {
        perror("listening");
        exit(1);
    }
    printf("listening on 127.0.0.1:%d\n", ntohs(address.sin_port));
    return listener;
}

int main(int count, char **values) {
    morrow_server_options options = MORROW_SERVER_OPTIONS_INIT;
    morrow_server server;
    morrow_subscription subscription;
    struct sigaction action;
    int status, listener;
    if (count != 5)
        return fprintf(stderr, "page DATA PORT CAMERA PASSWORD\n"), 2;
    setvbuf(stdout, NULL, _IOLBF, 0);
    memset(&action, 0, sizeof action);
    action.sa_handler = end;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);
    options.data_folder = values[1];
    require(morrow_server_create(&server, &options));
    status = morrow_camera_add(server, values[3], "320x240", values[4]);
    require(status == MORROW_EXISTS ? morrow_camera_change(server, values[3], NULL, values[4]) : status);
    require(morrow_subscribe(&subscription, server, values[3], on_frame, NULL));
    listener = listen_on(atoi(values[2]));
    while (!ended) {
        struct pollfd waiting = {listener, POLLIN, 0};
        /* A signal that comes just before the wait is seen within half a second. */
        const int connection = poll(&waiting, 1, 500) > 0 ? accept(listener, NULL, NULL) : -1;
        if (connection >= 0)
            serve(server, connection, values[3]);
    }
    close(listener);
    require(morrow_server_destroy(server));
    if (newest != 0)
        morrow_frame_release(newest);
    return 0;
}
