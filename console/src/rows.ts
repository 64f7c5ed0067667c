// Rows and reports whose members the reference leaves open.

export interface Alarm {
    id: number;
    serial: string;
    kind: string;
    event: string;
    at: number;
    received_at: number;
    state: "open" | "acknowledged";
    acknowledged_by: string | null;
    acknowledged_at: number | null;
}

export interface LogLine {
    id: number;
    kind: "system" | "running";
    time: string; // of the device's clock; of a running log the second of its arrival
    event_type: string;
    event: string;
    received_at: number;
}

export interface AuditEntry {
    id: number;
    at: number;
    user_name: string;
    action: string;
    target: string;
    detail: string;
    status: number;
}

export interface Token {
    id: string;
    name: string;
    user_name: string;
    role: string;
    made_at: number;
    expires_at: number | null;
}

export interface RadioReport {
    radioflag: number; // the channel on the air, 0 for none
    bindwidth: number;
    channel: number;
    is_ap_client: number;
    power: number;
    rssi: number;
    radioenable: number;
}

export interface ClientReport {
    assoc_ssid: string;
    user_mac: string;
    ip: string;
    up_flow: string; // KiB since the association
    down_flow: string;
    up_rate: string; // kbit/s
    down_rate: string;
    access_type: number;
    os_type: number;
    online_time: string; // seconds
    signal_intensity: number; // dBm
}

export interface StatusReport {
    dev_info?: { manage_ip?: string; hard_ver?: string; is_location?: number };
    run_status?: {
        cpu_info?: number;
        mem_info?: number;
        run_time?: string;
        user_num?: number;
        up_rate?: string;
        down_rate?: string;
        front_dev?: { ip?: string; mac?: string; sn?: string; port?: string; self_port?: string };
    };
    ap_status?: { rf_rule?: RadioReport[] };
    user_list?: ClientReport[];
}

export interface SsidReport {
    ssididx: number;
    ssid: string;
    hide: number;
    encrypt: number;
    max_conn: number;
    status: number;
    client_quarantine: number;
    vlan: string;
}

export interface ConfigReport {
    wireless?: { wireless_config?: { radio1?: SsidReport[]; radio2?: SsidReport[] } };
}

export interface Neighbour {
    bssid?: string;
    ssid?: string;
    band_type?: number; // 1: 2.4 GHz, 2: 5 GHz
    chanspec?: { primary_channel?: number; bandwidth?: number };
    rssi?: number;
}

export interface TopologyNeighbour {
    mac: string;
    ip: string;
    type: string;
    sn: string;
}

export interface TopologyPort {
    port: number; // 1, 2, 255: the wireless side
    link_rate: number; // Mbit/s; 0: no link
    tx_rate: number; // kbit/s
    rx_rate: number;
    vlan_id?: string;
    neighbour_devs?: Record<string, TopologyNeighbour>;
}

export interface TopologyReport {
    dev_topo?: {
        dev_info?: { up_port: number; link_rate: number; total_vlan: string };
        port_info?: Record<string, TopologyPort>;
    };
}
