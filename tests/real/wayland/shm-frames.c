// Preloaded into xdg-desktop-portal-wlr in the tests' Wayland desktop only. Its 0.7 refuses to share a screen
// ("unable to receive a valid format from wlr_screencopy") unless the compositor offers GPU (DMA-BUF) frames besides
// shared-memory ones, which a compositor without a GPU never does. Here the backend finds no GPU device, and each
// shared-memory frame is announced to it as offered on the GPU too: without a GPU device it then gives PipeWire
// shared-memory buffers only. scripts/wayland-session/wayland-run.sh says when a newer backend may not need this.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <string.h>

struct wl_proxy;
struct frame;

// zwlr_screencopy_frame_v1's events, in the protocol's order.
struct frame_listener {
    void (*buffer)(void *, struct frame *, uint32_t format, uint32_t width, uint32_t height, uint32_t stride);
    void (*flags)(void *, struct frame *, uint32_t flags);
    void (*ready)(void *, struct frame *, uint32_t sec_hi, uint32_t sec_lo, uint32_t nsec);
    void (*failed)(void *, struct frame *);
    void (*damage)(void *, struct frame *, uint32_t x, uint32_t y, uint32_t width, uint32_t height);
    void (*linux_dmabuf)(void *, struct frame *, uint32_t format, uint32_t width, uint32_t height);
    void (*buffer_done)(void *, struct frame *);
};

// The backend's listener (one for all frames), the relay standing in for it, and what the frame being described
// (one after the other) offers so far.
static const struct frame_listener *backend;
static struct frame_listener relay;
static uint32_t shmFormat, shmWidth, shmHeight;
static int offeredOnGpu;

static void onBuffer(void *data, struct frame *frame, uint32_t format, uint32_t width, uint32_t height,
                     uint32_t stride)
{
    shmFormat = format;
    shmWidth = width;
    shmHeight = height;
    offeredOnGpu = 0;
    backend->buffer(data, frame, format, width, height, stride);
}

static void onLinuxDmabuf(void *data, struct frame *frame, uint32_t format, uint32_t width, uint32_t height)
{
    offeredOnGpu = 1;
    backend->linux_dmabuf(data, frame, format, width, height);
}

static void onBufferDone(void *data, struct frame *frame)
{
    if (!offeredOnGpu) {
        // wl_shm's codes are DRM's, but for its first two formats.
        const uint32_t drm = shmFormat == 0   ? 0x34325241u  // ARGB8888
                             : shmFormat == 1 ? 0x34325258u  // XRGB8888
                                              : shmFormat;
        backend->linux_dmabuf(data, frame, drm, shmWidth, shmHeight);
    }
    backend->buffer_done(data, frame);
}

int wl_proxy_add_listener(struct wl_proxy *proxy, void (**implementation)(void), void *data)
{
    static int (*addListener)(struct wl_proxy *, void (**)(void), void *);
    static const char *(*classOf)(struct wl_proxy *);
    if (!addListener) {
        addListener = (int (*)(struct wl_proxy *, void (**)(void), void *))dlsym(RTLD_NEXT, "wl_proxy_add_listener");
        classOf = (const char *(*)(struct wl_proxy *))dlsym(RTLD_NEXT, "wl_proxy_get_class");
    }
    if (classOf && strcmp(classOf(proxy), "zwlr_screencopy_frame_v1") == 0) {
        backend = (const struct frame_listener *)implementation;
        relay = *backend;
        relay.buffer = onBuffer;
        relay.linux_dmabuf = onLinuxDmabuf;
        relay.buffer_done = onBufferDone;
        implementation = (void (**)(void))&relay;
    }
    return addListener(proxy, implementation, data);
}

// No GPU device: the backend allocates no GPU buffers.
struct gbm_device *gbm_create_device(int fd)
{
    (void)fd;
    return NULL;
}
