/**
 * What each model of access point is built for.
 */
#ifndef NET_AP_PARAM_H
#define NET_AP_PARAM_H

#include <array>
#include <cstdint>

struct ApModel {
    char name[16];
    int32_t max_stations;
    int32_t wired_rate; /**< Mbit/s of a wired port */
    int32_t rate_24;    /**< Mbit/s of the 2.4 GHz radio */
    int32_t rate_5;     /**< Mbit/s of the 5 GHz radio; 0: the model has none */
};

inline constexpr std::array<ApModel, 9> ap_param{{
    {"ZX-A1", 10, 100, 300, 0},
    {"ZX-A2", 30, 100, 300, 870},
    {"ZX-A3", 25, 100, 300, 0},
    {"ZX-A4", 50, 100, 300, 870},
    {"ZX-A5", 70, 1000, 300, 870},
    {"ZX-A6", 70, 1000, 300, 870},
    {"ZX-A7", 80, 1000, 450, 870},
    {"ZX-A8", 70, 1000, 300, 870},
    {"ZX-A9", 70, 1000, 300, 870},
}};

/** Limits of the model that "ap.apname" names; a name that stands at the start of a
 *  row's name means that row. Outputs keep their values when no row matches.
 *  0; -1: no model is configured. Any thread. */
int get_ap_sta_num_max(int *stations);
int get_eth0_rate_max(int *rate);
int get_wireless_rate_max(int *rate_24, int *rate_5);

#endif
