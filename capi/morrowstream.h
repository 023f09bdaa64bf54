/* Morrowstream for programs in any language: phones as cameras of a server, and phones that watch its
 * sources.
 *
 * What the calls have in common:
 *
 * - Texts are UTF-8 and end with a zero.
 * - What can fail returns a morrow_status, 0 or a negative number, and morrow_last_error() has a text for
 *   people then. Results come through the first parameters. After a failure these hold 0 or null; a struct
 *   stays as it was.
 * - A handle is a number that is used once in the life of a process. One that is dead, or was never given, is
 *   refused with MORROW_BAD_HANDLE. 0 is never a handle.
 * - What comes as "void **", "char **" or "morrow_camera_list **" is the caller's and goes back with the free
 *   function named there. Other pointers that come out are lent for the time that the call names.
 * - A struct that goes in or out begins with its own size, which the macro ..._INIT behind it sets: so a
 *   program that was compiled against an older header goes on working. What the library does not know of a
 *   newer one must be 0.
 * - Any thread may call anything at any time, but from inside a callback.
 *
 * What the callbacks have in common:
 *
 * - Each comes on the thread that it names, with the payload that was given for it as the last parameter.
 * - Inside of any of them only morrow_frame_*, morrow_last_error, morrow_free and morrow_version may be
 * called. Everything else returns MORROW_IN_CALLBACK and touches nothing.
 * - It must not wait for a thread that calls this library, and is left by return, not by an exception or a
 *   jump.
 * - Once the call that ends it has returned, it does not come again.
 */
#ifndef MORROWSTREAM_H
#define MORROWSTREAM_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define MORROW_API __attribute__((visibility("default")))
#else
#define MORROW_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define MORROW_VERSION_MAJOR 1
#define MORROW_VERSION_MINOR 0
#define MORROW_VERSION_PATCH 0

/* The version of the library that runs: major * 65536 + minor * 256 + patch. Within one major number, what
 * works goes on working. */
MORROW_API uint32_t morrow_version(void);

typedef enum morrow_status {
    MORROW_OK = 0,
    MORROW_INVALID = -1,     /* an argument that no call of this kind can take */
    MORROW_BAD_HANDLE = -2,  /* the handle is dead, or one of something else */
    MORROW_BUSY = -3,        /* there is a server already, or it is bound to another folder or language */
    MORROW_IN_CALLBACK = -4, /* not from inside a callback */
    MORROW_NOT_FOUND = -5,   /* there is no such thing */
    MORROW_EXISTS = -6,      /* there is one already */
    MORROW_DENIED = -7,      /* name and password do not fit, or may not do that */
    MORROW_NO_PICTURE = -8,  /* the bytes are no picture that can be decoded */
    MORROW_NO_MEMORY = -9,
    MORROW_TOO_MANY = -10,  /* as many as there may be are there already */
    MORROW_NOT_SAVED = -11, /* done and in force, but not on disk: the next start knows nothing of it */
    MORROW_TIMEOUT = -12,   /* it did not come in time */
    MORROW_CLOSED = -13,    /* the other side, or the end of the server, broke it off */
    MORROW_FAILED = -14     /* the system refuses; the text says what */
} morrow_status;

/* Why the calling thread's last call that failed did; "" before the first. Valid until its next call. */
MORROW_API const char* morrow_last_error(void);

/* Gives back memory that a call has made; null does nothing. */
MORROW_API void morrow_free(void* memory);

/* --- The server --- */

typedef uint64_t morrow_server;

/* One line of the log. Channels are "error", "message", "mobile", "fps" and others. Comes on any thread,
 * several at a time. */
typedef void (*morrow_log_callback)(const char* channel, const char* text, void* payload);

/* Whether a phone that signed in as `login` with `password` (HTTP Basic; both empty without it) may watch the
 * source `source`: anything but 0 lets it. Comes on the library's thread for connections: others wait
 * meanwhile. */
typedef int (*morrow_watch_callback)(const char* login, const char* password, const char* source,
                                     void* payload);

typedef struct morrow_server_options {
    size_t size;
    /* Where settings are kept; made, for its owner alone, when it is not there. */
    const char* data_folder;
    /* Of texts on phones: "en", "ru" and others; null leaves it as it was, English at first. */
    const char* language;
    /* "HOST:PORT" that phones are told to connect to; null leaves it as it was. */
    const char* address;
    /* The component's file, libmorrowstream.so; null takes the one that lies beside this library. */
    const char* module;
    /* How many milliseconds a connection may take until it can be handed on; 0: 5000. */
    uint32_t wait_ms;
    /* Not 0: each camera is a source of its own name for phones that watch. */
    uint32_t show_cameras;
    /* A picture of more pixels is one that cannot be decoded, in all of the process; 0: 67,108,864. */
    uint64_t most_pixels;
    morrow_log_callback log; /* null: no log */
    void* log_payload;
    morrow_watch_callback may_watch; /* null: nobody may watch */
    void* watch_payload;
} morrow_server_options;
#define MORROW_SERVER_OPTIONS_INIT                                                                           \
    { sizeof(morrow_server_options), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0 }

/* Starts the server: loads the component, and reads the settings in the folder. There is one at a time in a
 * process, and all of a process have the same folder and language: MORROW_BUSY else, also while another
 * process uses the folder. */
MORROW_API int morrow_server_create(morrow_server* server, const morrow_server_options* options);

/* Ends it in order: connections close, callbacks stop, all handles but those of kept frames die. Takes up to
 * a second longer than the callbacks that are at work. */
MORROW_API int morrow_server_destroy(morrow_server server);

/* --- Cameras --- */

typedef struct morrow_camera {
    const char* name;
    const char* type;  /* what its phone is told to send: "320x240" or "160x120" */
    int32_t connected; /* 1 while a phone sends, else 0 */
} morrow_camera;

/* More fields may come behind these, so cameras come as pointers. */
typedef struct morrow_camera_list {
    size_t count;
    const morrow_camera* const* cameras; /* in the order of the settings */
} morrow_camera_list;

MORROW_API int morrow_camera_list_get(morrow_camera_list** list, morrow_server server);
MORROW_API void morrow_camera_list_free(morrow_camera_list* list);

/* Each of the next three is written to disk when it returns MORROW_OK. Names have 1 to 64 bytes without
 * control characters and without / ? # : % & ; passwords have 1 to 63 bytes without control characters and
 * without & and /.
 *
 * MORROW_EXISTS for a name that is taken. */
MORROW_API int morrow_camera_add(morrow_server server, const char* name, const char* type,
                                 const char* password);
/* Null leaves the type or the password as it is. A phone that sends goes on. */
MORROW_API int morrow_camera_change(morrow_server server, const char* name, const char* type,
                                    const char* password);
/* Ends its upload. No frame of it comes to a callback afterwards. */
MORROW_API int morrow_camera_remove(morrow_server server, const char* name);

/* The password of a camera; morrow_free. */
MORROW_API int morrow_camera_password(char** password, morrow_server server, const char* name);
/* 1 while a phone sends, else 0. */
MORROW_API int morrow_camera_connected(int32_t* connected, morrow_server server, const char* name);

/* The settings as one XML document (docs/configuration.md), with all passwords; morrow_free. */
MORROW_API int morrow_settings_get(char** xml, morrow_server server);
/* Puts a document in the place of the settings, in one step: all of it is in force afterwards, or nothing of
 * it (MORROW_INVALID). Cameras that stay go on sending. */
MORROW_API int morrow_settings_set(morrow_server server, const char* xml);

/* --- Connections of phones --- */

/* What became of a connection: MORROW_UPLOADING into the camera `name`, MORROW_WATCHING the source `name`, or
 * a failure, and the connection is closed then: MORROW_DENIED (no such camera or source, or a wrong password:
 * slow down who guesses), MORROW_NOT_FOUND (no request of a phone), MORROW_TIMEOUT, MORROW_CLOSED. `name` is
 * "" before it is known. Comes once for each connection that was taken, on the library's thread for
 * connections. */
typedef void (*morrow_taken_callback)(int outcome, const char* name, void* payload);
#define MORROW_UPLOADING 1
#define MORROW_WATCHING 2

/* Takes a connected stream socket, with the `size` bytes that were read from it so far, none up to the whole
 * head and more. Returns at once: what is missing is read on a thread of the library. With MORROW_OK the
 * descriptor is the library's; after a failure it stays the caller's, and nothing was read from it:
 * MORROW_NOT_FOUND for a head that is no phone's ("POST /mobile/video/CAMERA", "GET /mobile/video/SOURCE"),
 * MORROW_TOO_MANY while 1024 connections wait. `taken` may be null. Under TLS give one end of a socket pair,
 * and carry. */
MORROW_API int morrow_take(morrow_server server, int descriptor, const void* bytes, size_t size,
                           morrow_taken_callback taken, void* payload);

/* The archive that a phone installs (a JAR); morrow_free.
 *
 * MORROW_ARCHIVE_SEND makes the phone the camera `login`, MORROW_DENIED when there is none with that
 * password; MORROW_ARCHIVE_WATCH lets it watch, as `login`. `title` is its name on the phone: at most 100
 * letters. Login, password and title have no control characters and no & and /. Takes about 50 ms, in which
 * new connections wait. */
typedef enum morrow_archive_kind { MORROW_ARCHIVE_SEND = 1, MORROW_ARCHIVE_WATCH = 2 } morrow_archive_kind;
MORROW_API int morrow_archive_make(void** bytes, size_t* size, morrow_server server, int kind,
                                   const char* login, const char* password, const char* title);

/* --- Pictures --- */

typedef uint64_t morrow_frame;

#define MORROW_GREY 1  /* one plane */
#define MORROW_YCBCR 2 /* three planes; the chroma planes have half the width and height, rounded down */

/* Samples of eight bits, full range (ITU-T T.871), rows from the top. Strides are bytes from row to row. */
typedef struct morrow_picture {
    size_t size;
    int32_t form;
    int32_t width;
    int32_t height;
    int32_t y_stride;
    int32_t chroma_stride; /* of both planes; 0 for grey, as cb and cr are null */
    const uint8_t* y;
    const uint8_t* cb;
    const uint8_t* cr;
} morrow_picture;
#define MORROW_PICTURE_INIT                                                                                  \
    { sizeof(morrow_picture), 0, 0, 0, 0, 0, 0, 0, 0 }

/* One frame of a camera. Comes on the thread that receives it, with the camera's lock held: the phone is not
 * read until it returns, and what ends the camera or the subscription waits for it. The handle is good until
 * then, and longer for who keeps it. */
typedef void (*morrow_frame_callback)(const char* camera, morrow_frame frame, void* payload);

typedef uint64_t morrow_subscription;

/* Calls for each frame of a camera that is there, or, with null, of every camera, also of those that come
 * later. The first call may come before this returns. The subscription outlives its camera, and goes on when
 * one of the same name is added. */
MORROW_API int morrow_subscribe(morrow_subscription* subscription, morrow_server server, const char* camera,
                                morrow_frame_callback frame, void* payload);
MORROW_API int morrow_unsubscribe(morrow_subscription subscription);

/* The planes, lent as long as the frame is. `picture->size` says what there is room for. MORROW_NO_PICTURE
 * when the file could not be decoded. */
MORROW_API int morrow_frame_picture(morrow_picture* picture, morrow_frame frame);
/* The JPEG file to pass on, lent as long as the frame is: the phone's own without what a stranger may have
 * put into it (place, time, thumbnails), or, where that cannot be told apart, a new one of the planes. The
 * first call makes it. */
MORROW_API int morrow_frame_jpeg(const void** bytes, size_t* size, morrow_frame frame);
/* When its last byte was there, in nanoseconds: of CLOCK_MONOTONIC, and since 1970. Either may be null. */
MORROW_API int morrow_frame_times(int64_t* monotonic, int64_t* unix_time, morrow_frame frame);
/* Keeps the frame for longer than the callback, also than the server: once for each keep, release. */
MORROW_API int morrow_frame_keep(morrow_frame frame);
MORROW_API int morrow_frame_release(morrow_frame frame);

/* --- Sources for phones that watch --- */

typedef uint64_t morrow_source;

/* A source that phones may ask for by its name, which follows the rules of cameras' names. MORROW_EXISTS when
 * it is taken by another source. It shows a placeholder until it has a picture. */
MORROW_API int morrow_source_open(morrow_source* source, morrow_server server, const char* name);
/* The picture that it shows from now on: a frame, or planes, which are copied. */
MORROW_API int morrow_source_show_frame(morrow_source source, morrow_frame frame);
MORROW_API int morrow_source_show_picture(morrow_source source, const morrow_picture* picture);
/* Ends it, and the streams of who watches. */
MORROW_API int morrow_source_close(morrow_source source);

/* Ends the streams of those who watch as `login`, who may not any more, say; null: of all. */
MORROW_API int morrow_watchers_end(morrow_server server, const char* login);

/* --- The codec, which needs no server --- */

/* Size and form of a JPEG file, by its header alone. */
MORROW_API int morrow_jpeg_probe(int32_t* width, int32_t* height, int32_t* form, const void* bytes,
                                 size_t size);
/* Decodes a JPEG file: a frame that is kept once. Its times are those of the call. */
MORROW_API int morrow_jpeg_decode(morrow_frame* frame, const void* bytes, size_t size);
/* Encodes with a quality of 1 to 100; morrow_free. */
MORROW_API int morrow_jpeg_encode(void** bytes, size_t* size, const morrow_picture* picture, int quality);

#ifdef __cplusplus
}
#endif

#endif
