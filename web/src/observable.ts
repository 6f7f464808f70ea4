// What components watch: it tells its listeners of each change, and counts them.
export class Observable {
    private readonly listeners = new Set<() => void>();
    private generation = 0;

    /** Grows with every change that subscribers are told of. */
    get version(): number {
        return this.generation;
    }

    /** Calls the listener after every change. Returns what ends that. */
    readonly subscribe = (listener: () => void): (() => void) => {
        this.listeners.add(listener);
        return () => this.listeners.delete(listener);
    };

    protected changed(): void {
        this.generation += 1;
        for (const listener of [...this.listeners]) {
            listener();
        }
    }
}
