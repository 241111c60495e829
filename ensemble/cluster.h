// The ranks of a cluster run under mpirun or srun: who this process is, and the few messages an
// ensemble sends between ranks. Without MPI (or not started by a launcher) one rank of one.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

struct Cluster {
    int rank = 0;
    int size = 1;
};

// joins the cluster when a launcher started this process and MPI is built in; once per process
Cluster clusterJoin();
// leaves it at the end of the ensemble
void clusterLeave();
// whether this build can run on a cluster
bool clusterBuiltIn();

// rank 0's values to every rank
void clusterBroadcast(std::vector<uint64_t>& values);
// a message of bytes to rank 0, and its receipt there from one rank, in order of sending
void clusterSend(const std::string& bytes);
std::string clusterReceive(int from);
