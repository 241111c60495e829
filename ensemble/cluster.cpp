#include "ensemble/cluster.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

#ifdef VELDOR_MPI
#include <mpi.h>
#endif

namespace {
Cluster g_cluster;
bool g_joined = false;

#ifdef VELDOR_MPI
// waits for a request without spinning: a rank that waits for rank 0 (while it runs the variant's
// own forecast or gathers) leaves its core to the members on the same node
void waitQuietly(MPI_Request& request)
{
    for (int done = 0;;) {
        MPI_Test(&request, &done, MPI_STATUS_IGNORE);
        if (done) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
#endif
}

bool clusterBuiltIn()
{
#ifdef VELDOR_MPI
    return true;
#else
    return false;
#endif
}

Cluster clusterJoin()
{
#ifdef VELDOR_MPI
    if (g_joined) return g_cluster;
    // only a process that a launcher started joins; the members it starts in turn never do
    const bool launched = std::getenv("OMPI_COMM_WORLD_SIZE") || std::getenv("PMI_SIZE") || std::getenv("PMIX_RANK");
    if (!launched) return g_cluster;
    int provided = 0;
    MPI_Init_thread(nullptr, nullptr, MPI_THREAD_SINGLE, &provided);
    MPI_Comm_rank(MPI_COMM_WORLD, &g_cluster.rank);
    MPI_Comm_size(MPI_COMM_WORLD, &g_cluster.size);
    g_joined = true;
#endif
    return g_cluster;
}

void clusterLeave()
{
#ifdef VELDOR_MPI
    if (g_joined) {
        // every rank reaches the end before any leaves, waiting without spinning
        MPI_Request request;
        MPI_Ibarrier(MPI_COMM_WORLD, &request);
        waitQuietly(request);
        MPI_Finalize();
    }
    g_joined = false;
#endif
}

void clusterBroadcast(std::vector<uint64_t>& values)
{
#ifdef VELDOR_MPI
    if (g_joined && g_cluster.size > 1) {
        MPI_Request request;
        MPI_Ibcast(values.data(), int(values.size()), MPI_UINT64_T, 0, MPI_COMM_WORLD, &request);
        waitQuietly(request);
    }
#else
    (void)values;
#endif
}

void clusterSend(const std::string& bytes)
{
#ifdef VELDOR_MPI
    if (!g_joined) return;
    uint64_t n = bytes.size();
    MPI_Request request;
    MPI_Isend(&n, 1, MPI_UINT64_T, 0, 1, MPI_COMM_WORLD, &request);
    waitQuietly(request);
    // in pieces below the limit of one message's count
    const uint64_t piece = 1u << 30;
    for (uint64_t at = 0; at < n; at += piece) {
        MPI_Isend(bytes.data() + at, int(std::min(piece, n - at)), MPI_CHAR, 0, 2, MPI_COMM_WORLD, &request);
        waitQuietly(request);
    }
#else
    (void)bytes;
#endif
}

std::string clusterReceive(int from)
{
    std::string bytes;
#ifdef VELDOR_MPI
    if (!g_joined) return bytes;
    uint64_t n = 0;
    MPI_Request request;
    MPI_Irecv(&n, 1, MPI_UINT64_T, from, 1, MPI_COMM_WORLD, &request);
    waitQuietly(request);
    bytes.resize(n);
    const uint64_t piece = 1u << 30;
    for (uint64_t at = 0; at < n; at += piece) {
        MPI_Irecv(bytes.data() + at, int(std::min(piece, n - at)), MPI_CHAR, from, 2, MPI_COMM_WORLD, &request);
        waitQuietly(request);
    }
#else
    (void)from;
#endif
    return bytes;
}
