#include "ensemble/cluster.h"

#include <algorithm>
#include <cstdlib>

#ifdef VELDOR_MPI
#include <mpi.h>
#endif

namespace {
Cluster g_cluster;
bool g_joined = false;
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
    if (g_joined) MPI_Finalize();
    g_joined = false;
#endif
}

void clusterBroadcast(std::vector<uint64_t>& values)
{
#ifdef VELDOR_MPI
    if (g_joined && g_cluster.size > 1)
        MPI_Bcast(values.data(), int(values.size()), MPI_UINT64_T, 0, MPI_COMM_WORLD);
#else
    (void)values;
#endif
}

void clusterSend(const std::string& bytes)
{
#ifdef VELDOR_MPI
    if (!g_joined) return;
    uint64_t n = bytes.size();
    MPI_Send(&n, 1, MPI_UINT64_T, 0, 1, MPI_COMM_WORLD);
    // in pieces below the limit of one message's count
    const uint64_t piece = 1u << 30;
    for (uint64_t at = 0; at < n; at += piece)
        MPI_Send(bytes.data() + at, int(std::min(piece, n - at)), MPI_CHAR, 0, 2, MPI_COMM_WORLD);
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
    MPI_Recv(&n, 1, MPI_UINT64_T, from, 1, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
    bytes.resize(n);
    const uint64_t piece = 1u << 30;
    for (uint64_t at = 0; at < n; at += piece)
        MPI_Recv(bytes.data() + at, int(std::min(piece, n - at)), MPI_CHAR, from, 2, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
#else
    (void)from;
#endif
    return bytes;
}
