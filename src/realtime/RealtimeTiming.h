#pragma once

// The client's time constants. Production uses the defaults; tests shorten them so that
// reconnects, pings and cycles happen in milliseconds instead of minutes.
struct RealtimeTiming
{
    // A reconnect announced as "n s" waits n * backoffUnitMs milliseconds
    // (the announced sequence is always 1, 2, 4, 8, 16, 20, 20 ... s).
    int backoffUnitMs = 1000;
    // How long opening a socket (connect and handshake) may take.
    int connectTimeoutMs = 60000;
    // How long after the socket opened the service may take to acknowledge the configuration.
    int configTimeoutMs = 15000;
    // Our own keep-alive ping, and how long a pong may take before the socket counts as dead.
    int pingIntervalMs = 20000;
    int pongTimeoutMs = 20000;
    // Time between deliberate session cycles; 0 means max(reconnectMinutes, 5) minutes.
    int cycleMs = 0;
};
