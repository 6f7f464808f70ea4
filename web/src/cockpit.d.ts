// The part of the console's own script that this page uses. It is loaded by a script tag of its own
// and fits the bridge that it talks to, so it is never bundled.
declare const cockpit: {
    gettext: (text: string) => string;
    ngettext: (one: string, many: string, n: number) => string;
    format: (text: string, ...args: unknown[]) => string;
    channel(options: CockpitChannelOptions): CockpitChannel;
    user(): Promise<{ name: string; full_name: string; id: number; groups: string[]; home: string }>;
    permission(options: { admin: true }): CockpitPermission;
    location: CockpitLocation;
    readonly transport: { uri(): string };
    readonly manifests: Record<string, Record<string, unknown> | undefined>;
    readonly language: string;
    readonly hidden: boolean;
    addEventListener(name: "locationchanged" | "visibilitychange", listener: () => void): void;
    removeEventListener(name: "locationchanged" | "visibilitychange", listener: () => void): void;
};

interface CockpitPermission {
    readonly allowed: boolean | null;
    addEventListener(name: "changed", listener: () => void): void;
}

interface CockpitChannelOptions {
    payload: "stream";
    unix: string;
    superuser?: "try" | "require";
    binary?: boolean;
}

interface CockpitChannel {
    send(data: string | Uint8Array): void;
    close(problem?: string): void;
    addEventListener(name: "message", listener: (event: Event, data: string | Uint8Array) => void): void;
    addEventListener(name: "close", listener: (event: Event, options: { problem?: string; message?: string }) => void): void;
}

interface CockpitLocation {
    readonly path: string[];
    readonly options: Record<string, string | string[]>;
    go(path: string[] | string, options?: Record<string, string>): void;
    replace(path: string[] | string, options?: Record<string, string>): void;
}
