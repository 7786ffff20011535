// The catalogue that a simulator has when it is given none, in the text form of catalogue_file.cpp.
#include "catalogue_file.h"

#include <sstream>

namespace rixgwsim {

static const char *const kBuiltIn = R"(
group    Gateway
text     Product Vendral Gateway
text     Release 1.7.0
text     Host gateway-1
started  Start_Time
uptime   Up_Seconds
state    State 300 Running Running Running Busy
text     Log_Level Notice
counter  Configuration_Reloads 0.002
counter  Warnings_Logged 0.05
counter  Errors_Logged 0.008

group    Requests
counter  Received 48.5
counter  Completed 48.1
counter  Refused 0.21
counter  Timed_Out 0.07
counter  Retried 0.35
counter  Bytes_In 51200
counter  Bytes_Out 187500
interval Interval_Received 48.5 60
interval Interval_Completed 48.1 60
interval Interval_Failed 0.3 60
gauge    In_Progress 2 64 20
gauge    Response_Time_Average 3.20 41.80 45
gauge    Response_Time_Longest 60 2400 120
gauge    Per_Second 31.0 66.0 15

group    Connections
gauge    Open 18 120 60
text     Limit 500
counter  Accepted 1.9
counter  Closed 1.85
counter  Refused 0.03
counter  Lost 0.011
counter  Handshakes_Failed 0.004
counter  Authorisations_Failed 0.006
interval Interval_Accepted 1.9 60
gauge    Idle 4 40 40
gauge    Oldest_Seconds 1800 3600 600

group    Workers
text     Threads_Limit 64
gauge    Threads_Busy 1 48 10
gauge    Threads_Idle 4 32 10
counter  Threads_Started 0.02
counter  Threads_Ended 0.018
counter  Tasks_Completed 96.4
counter  Tasks_Failed 0.12
gauge    Busy_Percent 4.0 93.0 30
gauge    Task_Time_Average 0.80 12.50 45
interval Interval_Tasks 96.4 60

group    Queue
gauge    Length 0 220 12
text     Length_Limit 1000
counter  Added 48.3
counter  Taken 48.2
counter  Full 0.009
gauge    Wait_Average 0.10 9.90 25
gauge    Wait_Longest 20 900 90
interval Interval_Added 48.3 60
interval Interval_Full 0.009 60

group    Storage
gauge    Used_Megabytes 4100 7800 900
text     Size_Megabytes 16384
counter  Reads 212.4
counter  Writes 88.7
counter  Read_Errors 0.002
counter  Write_Errors 0.001
counter  Bytes_Read 1740000
counter  Bytes_Written 726000
gauge    Read_Time_Average 0.05 1.90 40
gauge    Write_Time_Average 0.10 3.70 40
interval Interval_Reads 212.4 300
interval Interval_Writes 88.7 300
state    Health 600 Good Good Good Slow

group    Cache
gauge    Entries 9000 25000 300
text     Entries_Limit 25000
counter  Hits 180.2
counter  Misses 32.6
counter  Evictions 11.3
gauge    Hit_Percent 71.0 98.0 60
gauge    Memory_Kilobytes 30000 98000 300
interval Interval_Hits 180.2 60
interval Interval_Misses 32.6 60

group    Memory
gauge    Used_Kilobytes 210000 760000 75
text     Limit_Kilobytes 1048576
gauge    Used_Percent 20.0 73.0 75
counter  Collections 0.11
counter  Collection_Milliseconds 1.7
gauge    Buffers_Used 12 480 20
text     Buffers_Limit 512
counter  Buffer_Waits 0.03

group    Sessions
gauge    Active 5 210 90
gauge    Most_Active 210 240 3600
counter  Opened 0.62
counter  Ended 0.6
counter  Expired 0.04
gauge    Length_Average 40 1900 200
interval Interval_Opened 0.62 300
interval Interval_Expired 0.04 300

group    Security
text     Mode Strict
counter  Sign_Ons 0.62
counter  Sign_Ons_Failed 0.015
counter  Certificates_Checked 1.9
counter  Certificates_Refused 0.002
text     Certificate_Expires 2031-06-30
interval Interval_Sign_Ons_Failed 0.015 300

group    Statistics
counter  Queries 0.4
counter  Queries_Failed 0.001
text     Interval_Seconds 60
gauge    Clients 1 6 120
gauge    Collection_Time 0.020 0.900 60
)";

Catalogue builtInCatalogue()
{
    std::istringstream text(kBuiltIn);
    return readCatalogue(text, "built-in catalogue");
}

} // namespace rixgwsim
